// Uploads in progress: each has an upload name (the name its content will
// have), a secret token in its URL, the byte position reached and a blob
// that receives the chunks. Every method requires the database lock;
// awaitIdle() gives it up while it waits.
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

    VHEmulatorResult<VHEmulatorUpload> begin(const std::string& shareId, const VHItemFields& fields,
                                             uint64_t expected, int eventType,
                                             const VHChangeOrigin& origin);
    std::optional<VHEmulatorUpload> find(const std::string& uploadName);
    // Waits, giving up `lock` (the database lock) meanwhile, until no chunk
    // of the upload is on its way; false when one still is at `deadline`.
    bool awaitIdle(const std::string& uploadName, std::unique_lock<std::mutex>& lock,
                   std::chrono::steady_clock::time_point deadline);
    // Marks an upload as receiving a chunk; false when one is on its way.
    bool claim(const std::string& uploadName);
    void release(const std::string& uploadName);
    // Uploads in progress, those receiving a chunk, and chunks waiting for
    // one of them.
    int64_t count();
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
    VHEmulatorDatabase& db_;
    VHEmulatorBlobs& blobs_;
    std::set<std::string> busy_;    // guarded by the database lock
    int waiting_ = 0;               // guarded by the database lock
    std::condition_variable idle_;  // a chunk of some upload was released
    std::map<std::string, std::shared_ptr<VHUploadDigest>>
        digests_;  // guarded by the database lock
};

}  // namespace vh::emulator
