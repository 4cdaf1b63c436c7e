// The content files of the emulator: one file per content version or
// pending upload in the blob folder, named by ids the emulator makes (never
// by a name a client sent).
//
// Creating, reading and writing a blob need no lock. The list of blobs to
// remove after a commit is guarded by the database lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vh::emulator {

inline constexpr const char* kEmptySha256 =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class VHEmulatorBlobs {
  public:
    // Makes the folder when needed; false when it cannot.
    bool open(const std::string& folder);

    // A new empty blob; the empty id when it cannot be made.
    std::string create();
    // The file of a blob id the emulator made; empty for any other text.
    std::string path(std::string_view blobId) const;
    // Read-only descriptor of a blob, or -1. The caller closes it.
    int openForReading(std::string_view blobId) const;
    // Size of a blob; nothing when it is missing.
    std::optional<uint64_t> size(std::string_view blobId) const;
    std::optional<std::string> sha256(std::string_view blobId) const;
    // Gives a blob its final size at once, so that writes into it do not
    // allocate as they go; false when the space cannot be had.
    bool reserve(std::string_view blobId, uint64_t size);
    void remove(std::string_view blobId);

    // Removals that wait for the end of the transaction: a blob given up
    // goes when it commits, a blob made for it when it rolls back. The four
    // require the database lock.
    void discardAfterCommit(const std::string& blobId);
    void discardAfterRollback(const std::string& blobId);
    void committed();
    void rolledBack();

  private:
    std::string folder_;
    std::vector<std::string> discarded_;  // guarded by the database lock
    std::vector<std::string> made_;       // guarded by the database lock
};

// Writes a stream of bytes into a blob from a given offset, in large
// positional writes.
class VHBlobWriter {
  public:
    VHBlobWriter(const std::string& path, uint64_t offset);
    ~VHBlobWriter();
    VHBlobWriter(const VHBlobWriter&) = delete;
    VHBlobWriter& operator=(const VHBlobWriter&) = delete;

    bool append(const char* data, size_t length);
    // Writes what is buffered; false when any write failed.
    bool finish();
    uint64_t written() const { return written_; }

  private:
    bool flush();
    int fd_ = -1;
    uint64_t offset_;
    uint64_t written_ = 0;
    bool failed_ = false;
    std::string buffer_;
};

// `size` bytes of the pattern for `seed` from `offset` on: byte p is byte
// p % 8 (little-endian) of splitmix64(seed + p / 8).
std::string VHPatternBytes(uint64_t seed, uint64_t offset, size_t size);

}  // namespace vh::emulator
