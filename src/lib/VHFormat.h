// Type-safe printf-style formatting with the "%@" object placeholder.
//
// The program's log and message texts are written with printf conversions
// and "%@" ("the argument's description"). VHFormat checks nothing at compile
// time but never reads an argument with the wrong type: every argument is
// captured with its real type and each conversion renders what it gets.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace vh {

class VHFormatArg {
  public:
    enum class Kind { Signed, Unsigned, Real, Text, Pointer };

    VHFormatArg(bool v) : kind_(Kind::Signed), i_(v ? 1 : 0) {}
    VHFormatArg(char v) : kind_(Kind::Signed), i_(v) {}
    template <typename T>
    requires(std::is_integral_v<T>&& std::is_signed_v<T> && !std::is_same_v<T, char>)
        VHFormatArg(T v)
        : kind_(Kind::Signed), i_(v) {}
    template <typename T>
    requires(std::is_integral_v<T>&& std::is_unsigned_v<T> && !std::is_same_v<T, bool>)
        VHFormatArg(T v)
        : kind_(Kind::Unsigned), u_(v) {}
    template <typename T>
    requires std::is_enum_v<T> VHFormatArg(T v)
        : VHFormatArg(static_cast<std::underlying_type_t<T>>(v)) {}
    VHFormatArg(double v) : kind_(Kind::Real), d_(v) {}
    VHFormatArg(float v) : kind_(Kind::Real), d_(v) {}
    VHFormatArg(const char* v) : kind_(Kind::Text), s_(v ? v : "(null)") {}
    VHFormatArg(std::string_view v) : kind_(Kind::Text), s_(v) {}
    VHFormatArg(const std::string& v) : kind_(Kind::Text), s_(v) {}
    VHFormatArg(const QString& v) : kind_(Kind::Text), s_(v.toStdString()) {}
    VHFormatArg(const QByteArray& v) : kind_(Kind::Text), s_(v.toStdString()) {}
    VHFormatArg(const void* v) : kind_(Kind::Pointer), p_(v) {}
    VHFormatArg(std::nullptr_t) : kind_(Kind::Text), s_("(null)") {}
    // Anything with a free `std::string VHDescription(const T&)` found by ADL.
    template <typename T>
    requires requires(const T& t) {
        { VHDescription(t) } -> std::convertible_to<std::string>;
    }
    VHFormatArg(const T& v) : kind_(Kind::Text), s_(VHDescription(v)) {}

    Kind kind() const { return kind_; }
    int64_t asSigned() const;
    uint64_t asUnsigned() const;
    double asReal() const;
    std::string asText() const;
    const void* asPointer() const { return p_; }

  private:
    Kind kind_;
    int64_t i_ = 0;
    uint64_t u_ = 0;
    double d_ = 0;
    std::string s_;
    const void* p_ = nullptr;
};

// Renders `format` with printf conversions (%d %i %u %x %o %c %s %f %g %e %p
// with flags, width, precision and h/l/ll/z/j/t/q length modifiers, all of
// which only mark the C type and are otherwise ignored) plus "%@", which
// prints the argument's text. Missing arguments render as nothing, extra
// ones are ignored.
std::string VHFormatArgs(std::string_view format, const std::vector<VHFormatArg>& args);

template <typename... Args>
std::string VHFormat(std::string_view format, const Args&... args) {
    return VHFormatArgs(format, std::vector<VHFormatArg>{VHFormatArg(args)...});
}

}  // namespace vh
