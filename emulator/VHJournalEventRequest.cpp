#include "VHJournalEventRequest.h"

#include <cmath>

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

constexpr uint64_t kLargestExact = uint64_t(1) << 53;
constexpr uint64_t kNoTick = ~uint64_t(0);

// The value of a whole number from 0 to 2^53; nothing for anything else.
std::optional<uint64_t> exactCount(const VHJson& value) {
    if (value.is_number_unsigned()) {
        uint64_t number = value.get<uint64_t>();
        return number <= kLargestExact ? std::optional(number) : std::nullopt;
    }
    if (value.is_number_integer()) {
        int64_t number = value.get<int64_t>();
        if (number < 0 || uint64_t(number) > kLargestExact) return std::nullopt;
        return uint64_t(number);
    }
    if (value.is_number_float()) {
        double number = value.get<double>();
        if (!(number >= 0 && number <= double(kLargestExact)) || std::floor(number) != number) {
            return std::nullopt;
        }
        return uint64_t(number);
    }
    return std::nullopt;
}

bool isAbsent(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() || it->is_null();
}

VHEmulatorFailure badNumber(const char* key) {
    return VHFail(400, kCodeBadRequest,
                  std::string(key) + " must be a whole number from 0 to 2^53");
}

bool isUnassignedTick(const VHJson& value) {
    return value.is_number_unsigned() && value.get<uint64_t>() == kNoTick;
}

std::optional<VHEmulatorFailure> checkTicks(const VHJson& object,
                                            std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        if (isAbsent(object, key)) continue;
        const VHJson& tick = object.at(key);
        if (!isUnassignedTick(tick) && !exactCount(tick)) return badNumber(key);
    }
    return std::nullopt;
}

// Reads an optional count into `value`; a refusal when it is not one.
std::optional<VHEmulatorFailure> readCount(const VHJson& object, const char* key,
                                           std::optional<int64_t>& value) {
    if (isAbsent(object, key)) return std::nullopt;
    auto count = exactCount(object.at(key));
    if (!count) return badNumber(key);
    value = int64_t(*count);
    return std::nullopt;
}

std::optional<double> dateField(const VHJson& file, const char* key) {
    auto it = file.find(key);
    if (it == file.end() || !it->is_string()) return std::nullopt;
    return VHParseServiceDate(it->get_ref<const std::string&>());
}

std::string textField(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flagField(const VHJson& object, const char* key, bool fallback) {
    auto it = object.find(key);
    if (it == object.end()) return fallback;
    if (it->is_boolean()) return it->get<bool>();
    return it->is_number() ? it->get<double>() != 0 : fallback;
}

VHEmulatorResult<VHItemFields> fieldsOf(const VHJson& file) {
    VHItemFields fields;
    fields.internalName = textField(file, "InternalName");
    fields.parentId = textField(file, "ParrentId");
    fields.name = textField(file, "PublicName");
    fields.isFile = flagField(file, "IsFile", true);
    fields.createTime = dateField(file, "CreationTime");
    fields.accessTime = dateField(file, "LastAccessTime");
    fields.writeTime = dateField(file, "LastWriteTime");
    if (auto refused = readCount(file, "Attributes", fields.attributes)) return *refused;
    if (auto refused = readCount(file, "POSIXPermissions", fields.permissions)) return *refused;
    return fields;
}

bool typeFitsMethod(int type, const std::string& method) {
    if (method == "POST") return type == kEventCreate;
    if (method == "DELETE") return type == kEventDelete;
    return type == kEventMove || type == kEventUpdate || type == kEventLock || type == kEventUnlock;
}

VHEmulatorResult<VHJournalEventRequest> readFile(const VHJson& file, VHJournalEventRequest event) {
    if (auto refused = checkTicks(file, {"Tick", "ShareTick", "UpdateTick", "CreateTick"})) {
        return *refused;
    }
    std::optional<int64_t> end, allocation;
    if (auto refused = readCount(file, "EndOfFile", end)) return *refused;
    if (auto refused = readCount(file, "AllocationSize", allocation)) return *refused;
    event.size = uint64_t(std::max(end.value_or(0), allocation.value_or(0)));
    auto fields = fieldsOf(file);
    if (!fields) return fields.failure();
    event.fields = std::move(*fields);
    return event;
}

}  // namespace

VHEmulatorResult<VHJournalEventRequest> VHReadJournalEvent(const VHJson& body,
                                                           const std::string& method,
                                                           const std::string& itemId) {
    if (!body.is_object() || isAbsent(body, "ClientJournalEventType")) {
        return VHFail(400, kCodeBadRequest, "Not a journal event");
    }
    auto type = exactCount(body.at("ClientJournalEventType"));
    if (!type || *type > 100 || !typeFitsMethod(int(*type), method)) {
        return VHFail(400, kCodeBadRequest, "The event type does not fit the method");
    }
    if (auto refused = checkTicks(body, {"ShareTick", "TransmitCounter", "CreateTick"})) {
        return *refused;
    }
    VHJournalEventRequest event;
    event.type = int(*type);
    event.origin.deviceId = textField(body, "DeviceId");
    event.origin.transmitId = textField(body, "TransmitId");
    auto file = body.find("VhVirtualFile");
    if (file != body.end() && file->is_object()) {
        auto read = readFile(*file, std::move(event));
        if (!read) return read.failure();
        event = std::move(*read);
    }
    if (!itemId.empty()) {
        if (!event.fields.internalName.empty() && event.fields.internalName != itemId) {
            return VHFail(400, kCodeBadRequest, "The item's id differs from the path");
        }
        event.fields.internalName = itemId;
    }
    return event;
}

}  // namespace vh::emulator
