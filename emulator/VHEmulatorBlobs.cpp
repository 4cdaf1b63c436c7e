#include "VHEmulatorBlobs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "VHEmulatorIds.h"
#include "VHSha256.h"

namespace vh::emulator {

namespace {

constexpr size_t kWriteBuffer = 1u << 20;
constexpr size_t kHashBuffer = 1u << 20;

bool isBlobId(std::string_view id) {
    if (id.size() != 33 || id[0] != 'b') return false;
    return id.substr(1).find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

uint64_t splitmix64(uint64_t x) {
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

}  // namespace

bool VHEmulatorBlobs::open(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    folder_ = folder;
    return std::filesystem::is_directory(folder, error);
}

std::string VHEmulatorBlobs::create() {
    std::string id = "b" + VHRandomHex(16);
    int fd = ::open(path(id).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return {};
    ::close(fd);
    return id;
}

std::string VHEmulatorBlobs::path(std::string_view blobId) const {
    if (!isBlobId(blobId)) return {};
    return folder_ + "/" + std::string(blobId);
}

int VHEmulatorBlobs::openForReading(std::string_view blobId) const {
    std::string file = path(blobId);
    return file.empty() ? -1 : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
}

std::optional<uint64_t> VHEmulatorBlobs::size(std::string_view blobId) const {
    struct stat info {};
    std::string file = path(blobId);
    if (file.empty() || ::stat(file.c_str(), &info) != 0) return std::nullopt;
    return static_cast<uint64_t>(info.st_size);
}

std::optional<std::string> VHEmulatorBlobs::sha256(std::string_view blobId) const {
    if (blobId.empty()) return std::string(kEmptySha256);
    int fd = openForReading(blobId);
    if (fd < 0) return std::nullopt;
    static thread_local std::unique_ptr<char[]> buffer(new char[kHashBuffer]);
    VHSha256 digest;
    ssize_t got;
    while ((got = ::read(fd, buffer.get(), kHashBuffer)) > 0) {
        digest.update(buffer.get(), static_cast<size_t>(got));
    }
    ::close(fd);
    if (got < 0) return std::nullopt;
    return digest.hex();
}

bool VHEmulatorBlobs::reserve(std::string_view blobId, uint64_t size) {
    int fd = ::open(path(blobId).c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool reserved = ::posix_fallocate(fd, 0, static_cast<off_t>(size)) == 0;
    ::close(fd);
    return reserved;
}

void VHEmulatorBlobs::remove(std::string_view blobId) {
    std::string file = path(blobId);
    if (!file.empty()) ::unlink(file.c_str());
}

void VHEmulatorBlobs::discardAfterCommit(const std::string& blobId) {
    if (!blobId.empty()) discarded_.push_back(blobId);
}

void VHEmulatorBlobs::discardAfterRollback(const std::string& blobId) {
    if (!blobId.empty()) made_.push_back(blobId);
}

void VHEmulatorBlobs::committed() {
    for (const std::string& id : discarded_) remove(id);
    discarded_.clear();
    made_.clear();
}

void VHEmulatorBlobs::rolledBack() {
    for (const std::string& id : made_) remove(id);
    made_.clear();
    discarded_.clear();
}

VHBlobWriter::VHBlobWriter(const std::string& path, uint64_t offset) : offset_(offset) {
    fd_ = path.empty() ? -1 : ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    failed_ = fd_ < 0;
    buffer_.reserve(kWriteBuffer);
}

VHBlobWriter::~VHBlobWriter() {
    if (fd_ >= 0) ::close(fd_);
}

bool VHBlobWriter::append(const char* data, size_t length) {
    written_ += length;
    while (length > 0 && !failed_) {
        size_t take = std::min(length, kWriteBuffer - buffer_.size());
        buffer_.append(data, take);
        data += take;
        length -= take;
        if (buffer_.size() == kWriteBuffer) flush();
    }
    return !failed_;
}

bool VHBlobWriter::flush() {
    size_t done = 0;
    while (done < buffer_.size() && !failed_) {
        ssize_t n = ::pwrite(fd_, buffer_.data() + done, buffer_.size() - done,
                             static_cast<off_t>(offset_));
        if (n <= 0) failed_ = true;
        if (n > 0) {
            done += static_cast<size_t>(n);
            offset_ += static_cast<uint64_t>(n);
        }
    }
    buffer_.clear();
    return !failed_;
}

bool VHBlobWriter::finish() {
    return flush() && !failed_;
}

std::string VHPatternBytes(uint64_t seed, uint64_t offset, size_t size) {
    std::string bytes(size, '\0');
    uint64_t word = splitmix64(seed + offset / 8);
    for (size_t i = 0; i < size; ++i) {
        uint64_t position = offset + i;
        if (position % 8 == 0) word = splitmix64(seed + position / 8);
        bytes[i] = static_cast<char>((word >> (8 * (position % 8))) & 0xff);
    }
    return bytes;
}

}  // namespace vh::emulator
