#include "lib/VHPathUtils.h"

namespace vh {

std::vector<std::string> VHPathComponents(std::string_view path) {
    std::vector<std::string> components;
    if (path.empty()) return components;
    if (path.front() == '/') components.emplace_back("/");
    size_t pos = 0;
    while (pos < path.size()) {
        size_t end = path.find('/', pos);
        if (end == std::string_view::npos) end = path.size();
        if (end > pos) components.emplace_back(path.substr(pos, end - pos));
        pos = end + 1;
    }
    return components;
}

std::string VHLastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/") return "/";
    size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string VHDeletingLastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return "";
    if (slash == 0) return "/";
    return std::string(path.substr(0, slash));
}

std::string VHPathExtension(std::string_view path) {
    std::string last = VHLastPathComponent(path);
    size_t point = last.rfind('.');
    if (point == std::string::npos || point + 1 == last.size()) return "";
    return last.substr(point + 1);
}

std::string VHDeletingPathExtension(std::string_view path) {
    std::string extension = VHPathExtension(path);
    if (extension.empty()) return std::string(path);
    std::string trimmed(path);
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
    return trimmed.substr(0, trimmed.size() - extension.size() - 1);
}

std::string VHAppendingPathComponent(std::string_view path, std::string_view component) {
    std::string out(path);
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    while (!component.empty() && component.front() == '/') component.remove_prefix(1);
    if (out.empty()) return std::string(component);
    if (component.empty()) return out;
    if (out.back() != '/') out += '/';
    return out + std::string(component);
}

std::string VHPathWithComponents(const std::vector<std::string>& components) {
    std::string out;
    for (const std::string& component : components) {
        out = component == "/" && out.empty() ? "/" : VHAppendingPathComponent(out, component);
    }
    return out;
}

}  // namespace vh
