// File contents: the ranged GET by upload name (the range travels in
// "Content-Range" with an exclusive end and is answered with 200 and
// exactly those bytes) and the chunk PUTs to an upload URL (inclusive end;
// 202 while more is expected, 200 with the recorded journal event at the
// end, 400 with "Code" 16 and the position held on a mismatch). Chunks of
// one upload are taken one at a time: a chunk that arrives while another is
// being received waits for it and is then judged against the new position.
//
// Bodies stream between the socket and the blob files without the database
// lock.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHTransferService {
  public:
    explicit VHTransferService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    struct Chunk {
        uint64_t first = 0;
        uint64_t last = 0;
        uint64_t total = 0;
    };
    void download(VHEmulatorExchange& exchange);
    void uploadChunk(VHEmulatorExchange& exchange);
    // The upload, marked busy; on a refusal `position` is where it stands.
    // With it, the running digest of the upload when it can go on.
    VHEmulatorResult<VHEmulatorUpload> claimChunk(const std::string& uploadName,
                                                  const std::string& token, const Chunk& chunk,
                                                  uint64_t& position,
                                                  std::shared_ptr<VHUploadDigest>& digest);
    bool receiveChunk(VHEmulatorExchange& exchange, const VHEmulatorUpload& upload,
                      const Chunk& chunk, VHUploadDigest* digest);
    void finishUpload(VHEmulatorExchange& exchange, const VHEmulatorUpload& upload,
                      const std::string& url, const VHUploadDigest* digest);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
