// JSON records of the service, mapped over nlohmann/json.
//
// A record is a struct that lists its keys once, in a static jsonKeys()
// returning a tuple of VHKey{"Name", &Record::Name}. A member of type
// std::optional<T> is an optional key (it may be missing or null); any other
// member is required. Parsing fails for the whole record when a required key
// is missing or any key has the wrong type, with an error that names the key
// path ("UserDomains[1].Domain.Url: expected a string"). Unknown keys are
// ignored. Serialising writes every required key and the optional keys that
// hold a value.
//
// Value types: std::string, bool, int32_t, int64_t, uint64_t (ticks, exact
// over the whole range), double, VHDate (service date text), nlohmann::json
// (carried as it is), std::vector<T>, std::map<std::string, T>, and records.
//
//   struct Domain {
//       std::optional<std::string> DomainId, Url;
//       static auto jsonKeys() {
//           return std::tuple{VHKey{"DomainId", &Domain::DomainId}, VHKey{"Url", &Domain::Url}};
//       }
//   };
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "lib/VHDate.h"

namespace vh {

using VHJson = nlohmann::json;

template <typename Record, typename Field>
struct VHKey {
    const char* name;
    Field Record::*member;
};
template <typename Record, typename Field>
VHKey(const char*, Field Record::*) -> VHKey<Record, Field>;

template <typename R>
concept VHJsonRecordType = requires {
    R::jsonKeys();
};

template <typename T>
struct VHJsonCodec;

namespace json_detail {

inline bool fail(std::string& error, const std::string& path, const char* what) {
    error = path + ": " + what;
    return false;
}

template <typename T>
bool readInteger(const VHJson& j, T& out, std::string& error, const std::string& path) {
    if (j.is_number_unsigned()) {
        auto v = j.get<uint64_t>();
        if constexpr (std::is_signed_v<T>) {
            if (v > static_cast<uint64_t>(std::numeric_limits<T>::max())) {
                return fail(error, path, "integer out of range");
            }
        }
        out = static_cast<T>(v);
        return true;
    }
    if (j.is_number_integer()) {
        auto v = j.get<int64_t>();
        if constexpr (std::is_signed_v<T>) {
            if (v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max()) {
                return fail(error, path, "integer out of range");
            }
        }
        // A negative value for an unsigned tick wraps: -1 is "all bits set".
        out = static_cast<T>(v);
        return true;
    }
    if (j.is_number_float()) {
        double v = j.get<double>();
        if (v != std::floor(v)) return fail(error, path, "expected an integer");
        out = static_cast<T>(v);
        return true;
    }
    return fail(error, path, "expected an integer");
}

}  // namespace json_detail

template <>
struct VHJsonCodec<std::string> {
    static bool read(const VHJson& j, std::string& out, std::string& error,
                     const std::string& path) {
        if (!j.is_string()) return json_detail::fail(error, path, "expected a string");
        out = j.get<std::string>();
        return true;
    }
    static VHJson write(const std::string& v) { return v; }
};

template <>
struct VHJsonCodec<bool> {
    static bool read(const VHJson& j, bool& out, std::string& error, const std::string& path) {
        if (j.is_boolean()) {
            out = j.get<bool>();
            return true;
        }
        if (j.is_number()) {  // the service also sends flags as 0/1
            out = j.get<double>() != 0;
            return true;
        }
        return json_detail::fail(error, path, "expected a boolean");
    }
    static VHJson write(bool v) { return v; }
};

template <typename T>
requires(std::is_integral_v<T> && !std::is_same_v<T, bool>) struct VHJsonCodec<T> {
    static bool read(const VHJson& j, T& out, std::string& error, const std::string& path) {
        return json_detail::readInteger(j, out, error, path);
    }
    static VHJson write(T v) { return v; }
};

template <>
struct VHJsonCodec<double> {
    static bool read(const VHJson& j, double& out, std::string& error, const std::string& path) {
        if (!j.is_number()) return json_detail::fail(error, path, "expected a number");
        out = j.get<double>();
        return true;
    }
    static VHJson write(double v) { return v; }
};

template <>
struct VHJsonCodec<VHDate> {
    static bool read(const VHJson& j, VHDate& out, std::string& error, const std::string& path) {
        if (!j.is_string()) return json_detail::fail(error, path, "expected a date text");
        out = VHDateFromJsonText(j.get_ref<const std::string&>());
        return true;
    }
    static VHJson write(VHDate v) { return VHDateToJsonText(v); }
};

template <>
struct VHJsonCodec<VHJson> {
    static bool read(const VHJson& j, VHJson& out, std::string&, const std::string&) {
        out = j;
        return true;
    }
    static VHJson write(const VHJson& v) { return v; }
};

template <typename T>
struct VHJsonCodec<std::vector<T>> {
    static bool read(const VHJson& j, std::vector<T>& out, std::string& error,
                     const std::string& path) {
        if (!j.is_array()) return json_detail::fail(error, path, "expected a list");
        out.clear();
        out.reserve(j.size());
        for (size_t i = 0; i < j.size(); ++i) {
            T item{};
            if (!VHJsonCodec<T>::read(j[i], item, error, path + "[" + std::to_string(i) + "]")) {
                return false;
            }
            out.push_back(std::move(item));
        }
        return true;
    }
    static VHJson write(const std::vector<T>& v) {
        VHJson array = VHJson::array();
        for (const T& item : v) array.push_back(VHJsonCodec<T>::write(item));
        return array;
    }
};

template <typename T>
struct VHJsonCodec<std::map<std::string, T>> {
    static bool read(const VHJson& j, std::map<std::string, T>& out, std::string& error,
                     const std::string& path) {
        if (!j.is_object()) return json_detail::fail(error, path, "expected an object");
        out.clear();
        for (auto it = j.begin(); it != j.end(); ++it) {
            T item{};
            if (!VHJsonCodec<T>::read(it.value(), item, error, path + "." + it.key())) return false;
            out.emplace(it.key(), std::move(item));
        }
        return true;
    }
    static VHJson write(const std::map<std::string, T>& v) {
        VHJson object = VHJson::object();
        for (const auto& [key, item] : v) object[key] = VHJsonCodec<T>::write(item);
        return object;
    }
};

template <VHJsonRecordType R>
struct VHJsonCodec<R> {
    static bool read(const VHJson& j, R& out, std::string& error, const std::string& path) {
        if (!j.is_object())
            return json_detail::fail(error, path.empty() ? "record" : path, "expected an object");
        return std::apply(
            [&](const auto&... key) { return (readKey(j, out, key, error, path) && ...); },
            R::jsonKeys());
    }

    static VHJson write(const R& record) {
        VHJson object = VHJson::object();
        std::apply([&](const auto&... key) { (writeKey(object, record, key), ...); },
                   R::jsonKeys());
        return object;
    }

  private:
    template <typename F>
    static bool readKey(const VHJson& j, R& out, const VHKey<R, F>& key, std::string& error,
                        const std::string& path) {
        std::string keyPath = path.empty() ? key.name : path + "." + key.name;
        auto it = j.find(key.name);
        bool absent = it == j.end() || it->is_null();
        if constexpr (IsOptional<F>::value) {
            if (absent) {
                (out.*key.member).reset();
                return true;
            }
            typename F::value_type value{};
            if (!VHJsonCodec<typename F::value_type>::read(*it, value, error, keyPath))
                return false;
            out.*key.member = std::move(value);
            return true;
        } else {
            if (absent) return json_detail::fail(error, keyPath, "missing required key");
            return VHJsonCodec<F>::read(*it, out.*key.member, error, keyPath);
        }
    }

    template <typename F>
    static void writeKey(VHJson& object, const R& record, const VHKey<R, F>& key) {
        if constexpr (IsOptional<F>::value) {
            if (const auto& value = record.*key.member) {
                object[key.name] = VHJsonCodec<typename F::value_type>::write(*value);
            }
        } else {
            object[key.name] = VHJsonCodec<F>::write(record.*key.member);
        }
    }

    template <typename T>
    struct IsOptional : std::false_type {};
    template <typename T>
    struct IsOptional<std::optional<T>> : std::true_type {};
};

// Parses `text` as record R. On failure returns nothing and, when `error` is
// given, the reason (a JSON syntax error or the offending key path).
template <VHJsonRecordType R>
std::optional<R> VHParseRecord(std::string_view text, std::string* error = nullptr) {
    VHJson j = VHJson::parse(text.begin(), text.end(), nullptr, false);
    std::string reason;
    if (j.is_discarded()) {
        reason = "not valid JSON";
    } else if (R record{}; VHJsonCodec<R>::read(j, record, reason, "")) {
        return record;
    }
    if (error) *error = reason;
    return std::nullopt;
}

template <VHJsonRecordType R>
std::optional<R> VHRecordFromJson(const VHJson& j, std::string* error = nullptr) {
    std::string reason;
    if (R record{}; VHJsonCodec<R>::read(j, record, reason, "")) return record;
    if (error) *error = reason;
    return std::nullopt;
}

template <VHJsonRecordType R>
VHJson VHRecordToJson(const R& record) {
    return VHJsonCodec<R>::write(record);
}

template <VHJsonRecordType R>
std::string VHSerializeRecord(const R& record) {
    return VHRecordToJson(record).dump(-1, ' ', false, VHJson::error_handler_t::replace);
}

}  // namespace vh
