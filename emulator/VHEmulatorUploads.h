// Uploads in progress: each has an upload name (the name its content will
// have), a secret token in its URL, the byte position reached and a blob
// that receives the chunks. An upload lives for a fixed time from its event;
// an expired one is as gone as a finished one. Its blob may be given its
// whole size at once (a reservation) while the reservations of all uploads
// stay within a limit. Every method requires the database lock; awaitIdle()
// gives it up while it waits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "VHEmulatorBlobs.h"
#include "VHEmulatorDatabase.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorJournal.h"
#include "VHEmulatorTypes.h"
#include "VHSha256.h"

namespace vh::emulator {

struct VHEmulatorUpload {
    std::string uploadName;
    std::string token;
    std::string shareId;  // the share the client addressed (may be a subfolder share)
    int eventType = kEventCreate;
    VHItemFields fields;
    uint64_t expected = 0;
    uint64_t position = 0;
    std::string blobId;
    VHChangeOrigin origin;
    double created = 0;     // seconds since 1970
    uint64_t reserved = 0;  // bytes to allocate for the blob at once
};

// The digest of an upload's bytes as they came, so that the finished
// content need not be read again. Touched only by the holder of the
// upload's claim.
struct VHUploadDigest {
    VHSha256 sha256;
    uint64_t position = 0;
};

class VHEmulatorUploads {
  public:
    VHEmulatorUploads(VHEmulatorDatabase& db, VHEmulatorBlobs& blobs) : db_(db), blobs_(blobs) {}

    // Set before the server runs.
    void configure(double lifetimeSeconds, uint64_t reserveLimit);

    // A new upload (requires a transaction). It gives up the expired uploads
    // and the earlier ones of the same item from the same user and device
    // (a client starts over after a refused chunk). `reserved` of the result
    // tells how much of the blob the caller is to allocate, outside the lock.
    VHEmulatorResult<VHEmulatorUpload> begin(const std::string& shareId, const VHItemFields& fields,
                                             uint64_t expected, int eventType,
                                             const VHChangeOrigin& origin);
    // A live upload; nothing for an unknown or expired one.
    std::optional<VHEmulatorUpload> find(const std::string& uploadName);
    bool isExpired(const VHEmulatorUpload& upload) const;
    // Gives up every expired upload that is not receiving a chunk (requires
    // a transaction).
    bool expire();
    // Waits, giving up `lock` (the database lock) meanwhile, until no chunk
    // of the upload is on its way; false when one still is at `deadline`.
    bool awaitIdle(const std::string& uploadName, std::unique_lock<std::mutex>& lock,
                   std::chrono::steady_clock::time_point deadline);
    // Marks an upload as receiving a chunk; false when one is on its way.
    bool claim(const std::string& uploadName);
    void release(const std::string& uploadName);
    // Uploads in progress (expired ones until they are given up), their
    // reserved bytes, those receiving a chunk, and chunks waiting for one.
    int64_t count();
    int64_t reservedBytes();
    size_t receiving() const { return busy_.size(); }
    int waiting() const { return waiting_; }
    bool advance(const std::string& uploadName, uint64_t position);
    // The running digest when it stands at `position` (one is started at 0);
    // null otherwise, for example after a restart.
    std::shared_ptr<VHUploadDigest> digest(const std::string& uploadName, uint64_t position);
    // Forgets the upload; its blob now belongs to an item.
    bool finish(const std::string& uploadName);
    // Forgets the upload and removes its blob after the commit.
    bool abandon(const std::string& uploadName);

  private:
    std::optional<VHEmulatorUpload> select(const std::string& uploadName);
    bool abandonWhere(const std::string& where, const std::vector<VHEmulatorValue>& values);

    VHEmulatorDatabase& db_;
    VHEmulatorBlobs& blobs_;
    double lifetime_ = kDefaultUploadLifetimeSeconds;
    uint64_t reserveLimit_ = kDefaultUploadReserveBytes;
    std::set<std::string> busy_;    // guarded by the database lock
    int waiting_ = 0;               // guarded by the database lock
    std::condition_variable idle_;  // a chunk of some upload was released
    std::map<std::string, std::shared_ptr<VHUploadDigest>>
        digests_;  // guarded by the database lock
};

}  // namespace vh::emulator
