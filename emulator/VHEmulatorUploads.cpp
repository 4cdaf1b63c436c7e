#include "VHEmulatorUploads.h"

#include <nlohmann/json.hpp>

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorIds.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

template <typename T>
void putOptional(VHJson& json, const char* key, const std::optional<T>& value) {
    if (value) json[key] = *value;
}

template <typename T>
std::optional<T> getOptional(const VHJson& json, const char* key) {
    auto it = json.find(key);
    if (it == json.end() || it->is_null()) return std::nullopt;
    return it->get<T>();
}

std::string fieldsText(const VHItemFields& fields) {
    VHJson json = {{"internalName", fields.internalName},
                   {"parentId", fields.parentId},
                   {"name", fields.name},
                   {"isFile", fields.isFile}};
    putOptional(json, "createTime", fields.createTime);
    putOptional(json, "accessTime", fields.accessTime);
    putOptional(json, "writeTime", fields.writeTime);
    putOptional(json, "attributes", fields.attributes);
    putOptional(json, "permissions", fields.permissions);
    return json.dump();
}

VHItemFields fieldsFromText(const std::string& text) {
    VHJson json = VHJson::parse(text, nullptr, false);
    VHItemFields fields;
    if (!json.is_object()) return fields;
    fields.internalName = json.value("internalName", "");
    fields.parentId = json.value("parentId", "");
    fields.name = json.value("name", "");
    fields.isFile = json.value("isFile", true);
    fields.createTime = getOptional<double>(json, "createTime");
    fields.accessTime = getOptional<double>(json, "accessTime");
    fields.writeTime = getOptional<double>(json, "writeTime");
    fields.attributes = getOptional<int64_t>(json, "attributes");
    fields.permissions = getOptional<int64_t>(json, "permissions");
    return fields;
}

}  // namespace

void VHEmulatorUploads::configure(double lifetimeSeconds, uint64_t reserveLimit) {
    lifetime_ = lifetimeSeconds;
    reserveLimit_ = reserveLimit;
}

VHEmulatorResult<VHEmulatorUpload> VHEmulatorUploads::begin(const std::string& shareId,
                                                            const VHItemFields& fields,
                                                            uint64_t expected, int eventType,
                                                            const VHChangeOrigin& origin) {
    if (!expire() ||
        !abandonWhere("WHERE shareId = ? AND internalName = ? AND user = ? AND deviceId = ?",
                      {shareId, fields.internalName, origin.user, origin.deviceId})) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    uint64_t held = static_cast<uint64_t>(reservedBytes());
    uint64_t reserved = held <= reserveLimit_ && expected <= reserveLimit_ - held ? expected : 0;
    VHEmulatorUpload upload{
        VHNewUploadName(), VHRandomHex(16), shareId,        eventType, fields, expected, 0,
        blobs_.create(),   origin,          VHNowSeconds(), reserved};
    if (upload.blobId.empty()) return VHFail(507, kCodeBadRequest, "No room for the content");
    blobs_.discardAfterRollback(upload.blobId);
    bool stored = db_.run(
        "INSERT INTO uploads (uploadName, token, shareId, internalName, eventType, fields, "
        "expected, position, blobId, user, deviceId, transmitId, created, reserved) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, 0, ?, ?, ?, ?, ?, ?)",
        {upload.uploadName, upload.token, shareId, fields.internalName, int64_t(eventType),
         fieldsText(fields), expected, upload.blobId, origin.user, origin.deviceId,
         origin.transmitId, upload.created, reserved});
    if (!stored) return VHFail(500, kCodeBadRequest, db_.lastError());
    return upload;
}

std::optional<VHEmulatorUpload> VHEmulatorUploads::find(const std::string& uploadName) {
    auto upload = select(uploadName);
    if (!upload || isExpired(*upload)) return std::nullopt;
    return upload;
}

std::optional<VHEmulatorUpload> VHEmulatorUploads::select(const std::string& uploadName) {
    std::optional<VHEmulatorUpload> result;
    db_.query(
        "SELECT uploadName, token, shareId, eventType, fields, expected, position, blobId, user, "
        "deviceId, transmitId, created, reserved FROM uploads WHERE uploadName = ?",
        {uploadName}, [&](const VHEmulatorDatabase::Row& row) {
            result = VHEmulatorUpload{row.columnText(0),
                                      row.columnText(1),
                                      row.columnText(2),
                                      static_cast<int>(row.columnInt64(3)),
                                      fieldsFromText(row.columnText(4)),
                                      row.columnUInt64(5),
                                      row.columnUInt64(6),
                                      row.columnText(7),
                                      {row.columnText(8), row.columnText(9), row.columnText(10)},
                                      row.columnDouble(11),
                                      row.columnUInt64(12)};
        });
    return result;
}

bool VHEmulatorUploads::isExpired(const VHEmulatorUpload& upload) const {
    return upload.created + lifetime_ <= VHNowSeconds();
}

bool VHEmulatorUploads::expire() {
    std::vector<std::string> expired;
    db_.query("SELECT uploadName FROM uploads WHERE created <= ?", {VHNowSeconds() - lifetime_},
              [&](const VHEmulatorDatabase::Row& row) {
                  std::string name = row.columnText(0);
                  if (!busy_.count(name)) expired.push_back(std::move(name));
              });
    for (const std::string& name : expired) {
        if (!abandon(name)) return false;
    }
    return true;
}

bool VHEmulatorUploads::abandonWhere(const std::string& where,
                                     const std::vector<VHEmulatorValue>& values) {
    std::vector<std::string> doomed;
    db_.query("SELECT uploadName FROM uploads " + where, values,
              [&](const VHEmulatorDatabase::Row& row) { doomed.push_back(row.columnText(0)); });
    for (const std::string& name : doomed) {
        if (!abandon(name)) return false;
    }
    return true;
}

int64_t VHEmulatorUploads::reservedBytes() {
    return db_.integer("SELECT COALESCE(SUM(reserved), 0) FROM uploads").value_or(0);
}

int64_t VHEmulatorUploads::count() {
    return db_.integer("SELECT COUNT(*) FROM uploads").value_or(0);
}

bool VHEmulatorUploads::awaitIdle(const std::string& uploadName, std::unique_lock<std::mutex>& lock,
                                  std::chrono::steady_clock::time_point deadline) {
    ++waiting_;
    bool idle = idle_.wait_until(lock, deadline, [&] { return busy_.count(uploadName) == 0; });
    --waiting_;
    return idle;
}

bool VHEmulatorUploads::claim(const std::string& uploadName) {
    return busy_.insert(uploadName).second;
}

void VHEmulatorUploads::release(const std::string& uploadName) {
    busy_.erase(uploadName);
    idle_.notify_all();
}

bool VHEmulatorUploads::advance(const std::string& uploadName, uint64_t position) {
    return db_.run("UPDATE uploads SET position = ? WHERE uploadName = ?", {position, uploadName});
}

std::shared_ptr<VHUploadDigest> VHEmulatorUploads::digest(const std::string& uploadName,
                                                          uint64_t position) {
    auto& digest = digests_[uploadName];
    if (!digest && position == 0) digest = std::make_shared<VHUploadDigest>();
    if (digest && digest->position == position) return digest;
    return nullptr;
}

bool VHEmulatorUploads::finish(const std::string& uploadName) {
    digests_.erase(uploadName);
    release(uploadName);
    return db_.run("DELETE FROM uploads WHERE uploadName = ?", {uploadName});
}

bool VHEmulatorUploads::abandon(const std::string& uploadName) {
    auto upload = select(uploadName);
    if (upload) blobs_.discardAfterCommit(upload->blobId);
    return finish(uploadName);
}

}  // namespace vh::emulator
