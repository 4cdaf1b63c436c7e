#include "lib/VHFormat.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace vh {

int64_t VHFormatArg::asSigned() const {
    switch (kind_) {
        case Kind::Signed:
            return i_;
        case Kind::Unsigned:
            return static_cast<int64_t>(u_);
        case Kind::Real:
            return static_cast<int64_t>(d_);
        case Kind::Text:
            return std::strtoll(s_.c_str(), nullptr, 10);
        case Kind::Pointer:
            return static_cast<int64_t>(reinterpret_cast<uintptr_t>(p_));
    }
    return 0;
}

uint64_t VHFormatArg::asUnsigned() const {
    return kind_ == Kind::Unsigned ? u_ : static_cast<uint64_t>(asSigned());
}

double VHFormatArg::asReal() const {
    switch (kind_) {
        case Kind::Real:
            return d_;
        case Kind::Signed:
            return static_cast<double>(i_);
        case Kind::Unsigned:
            return static_cast<double>(u_);
        case Kind::Text:
            return std::strtod(s_.c_str(), nullptr);
        case Kind::Pointer:
            return 0;
    }
    return 0;
}

std::string VHFormatArg::asText() const {
    char buf[64];
    switch (kind_) {
        case Kind::Text:
            return s_;
        case Kind::Signed:
            std::snprintf(buf, sizeof buf, "%" PRId64, i_);
            return buf;
        case Kind::Unsigned:
            std::snprintf(buf, sizeof buf, "%" PRIu64, u_);
            return buf;
        case Kind::Real:
            std::snprintf(buf, sizeof buf, "%g", d_);
            return buf;
        case Kind::Pointer:
            std::snprintf(buf, sizeof buf, "%p", p_);
            return buf;
    }
    return {};
}

namespace {

struct Directive {
    std::string flags;  // flags, width and precision as written, e.g. "-08.3"
    char conversion = 0;
};

// Parses the conversion that starts after '%' at `pos`; returns the index
// after it, or npos when the text ends inside it.
size_t parseDirective(std::string_view f, size_t pos, Directive& directive) {
    static constexpr std::string_view kFlagChars = "-+ #0123456789.*'";
    static constexpr std::string_view kLengthChars = "hlLqjzt";
    while (pos < f.size() && kFlagChars.find(f[pos]) != std::string_view::npos) {
        if (f[pos] != '*' && f[pos] != '\'') directive.flags += f[pos];
        ++pos;
    }
    while (pos < f.size() && kLengthChars.find(f[pos]) != std::string_view::npos) ++pos;
    if (pos >= f.size()) return std::string_view::npos;
    directive.conversion = f[pos];
    return pos + 1;
}

std::string renderNumber(const Directive& directive, const VHFormatArg& arg) {
    char buf[128];
    std::string fmt = "%" + directive.flags;
    switch (directive.conversion) {
        case 'd':
        case 'i':
            if (arg.kind() == VHFormatArg::Kind::Unsigned) {  // print the real value
                fmt += PRIu64;
                std::snprintf(buf, sizeof buf, fmt.c_str(), arg.asUnsigned());
                break;
            }
            fmt += PRId64;
            std::snprintf(buf, sizeof buf, fmt.c_str(), arg.asSigned());
            break;
        case 'u':
        case 'x':
        case 'X':
        case 'o': {
            fmt += directive.conversion == 'u'   ? PRIu64
                   : directive.conversion == 'x' ? PRIx64
                   : directive.conversion == 'X' ? PRIX64
                                                 : PRIo64;
            std::snprintf(buf, sizeof buf, fmt.c_str(), arg.asUnsigned());
            break;
        }
        case 'c':
            fmt += 'c';
            std::snprintf(buf, sizeof buf, fmt.c_str(), static_cast<int>(arg.asSigned()));
            break;
        case 'p':
            std::snprintf(buf, sizeof buf, "%p", arg.asPointer());
            break;
        default:  // f F e E g G a A
            fmt += directive.conversion;
            std::snprintf(buf, sizeof buf, fmt.c_str(), arg.asReal());
            break;
    }
    return buf;
}

std::string renderText(const Directive& directive, const VHFormatArg& arg) {
    std::string text = arg.asText();
    if (directive.flags.empty()) return text;
    std::string fmt = "%" + directive.flags + "s";
    int n = std::snprintf(nullptr, 0, fmt.c_str(), text.c_str());
    std::string out(n > 0 ? n : 0, '\0');
    std::snprintf(out.data(), out.size() + 1, fmt.c_str(), text.c_str());
    return out;
}

}  // namespace

std::string VHFormatArgs(std::string_view format, const std::vector<VHFormatArg>& args) {
    std::string out;
    out.reserve(format.size() + 32 * args.size());
    size_t next = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            out += format[i];
            continue;
        }
        if (i + 1 < format.size() && format[i + 1] == '%') {
            out += '%';
            ++i;
            continue;
        }
        Directive directive;
        size_t end = parseDirective(format, i + 1, directive);
        if (end == std::string_view::npos) {
            out.append(format.substr(i));
            break;
        }
        i = end - 1;
        if (next >= args.size()) continue;
        const VHFormatArg& arg = args[next++];
        bool isText = directive.conversion == '@' || directive.conversion == 's' ||
                      directive.conversion == 'S';
        out += isText ? renderText(directive, arg) : renderNumber(directive, arg);
    }
    return out;
}

}  // namespace vh
