// A file's contents: the event that opens an upload, then the bytes from the
// complete-cache file, one positional read per chunk, PUT to the upload URL.
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHTransferHooks.h"
#include "transfer/VHUploadOperation.h"

namespace vh {

namespace {

constexpr double kFastChunkSeconds = 0.7;
constexpr double kSlowChunkSeconds = 1.6;
constexpr double kSpeedAfterSeconds = 2.0;
constexpr int64_t kHashBlock = 1 << 20;

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

// Reads exactly `length` bytes at `offset` unless the file ends first.
ssize_t preadFully(int fd, char* buffer, size_t length, off_t offset) {
    size_t done = 0;
    while (done < length) {
        ssize_t n = ::pread(fd, buffer + done, length - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

std::string contentRange(int64_t position, int64_t length, int64_t size) {
    return VHFormat("bytes %ld-%ld/%ld", position, position + length - 1, size);
}

}  // namespace

std::string VHFileSha256(const std::string& path) {
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return "";
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) return "";
    std::string block(kHashBlock, '\0');
    for (;;) {
        ssize_t n = ::read(fd.get(), block.data(), block.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return "";
        if (n == 0) break;
        EVP_DigestUpdate(context.get(), block.data(), static_cast<size_t>(n));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest, &length);
    static const char* const kHex = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += kHex[digest[i] >> 4];
        hex += kHex[digest[i] & 15];
    }
    return hex;
}

// The state of one pass over the chunks.
struct VHUploadOperation::ChunkLoop {
    int64_t position = 0;
    int64_t start = 0;
    int64_t chunkSize = kFirstChunkSize;
    double timeout = 60;
    int retransmits = 0;
    double totalSeconds = 0;
    bool resend = false;
    std::string chunk;
};

VHUploadOperation::Result VHUploadOperation::newFileApiUpload(const ManagedShare& share) {
    if (isCancelled()) return uploadCancelled();
    VHLog(kLogMain, "new file api: uploading entry %@ with size %ld. File tick %ld",
          sent_.publicName, sent_.fileSize, sent_.tick);
    delegate_->noteUploadStarted(sent_);
    VHFileUploadStatus status;
    if (std::optional<VHFileUploadStatus> saved = resumableStatus()) {
        status = *saved;
    } else {
        status.internalName = sent_.internalName;
        status.startTime = VHDate::now();
        status.uploadName = sent_.uploadName;
    }
    if (status.token.empty()) {
        if (std::optional<Result> ended = beginUpload(share, status)) return *ended;
    }
    int fd = openFileForReading();
    if (fd < 0) {
        VHLog(kLogMain, "Upload request failed: %@, cannot open upload file for reading, error %d",
              sent_.publicName, errno);
        return contentFailure();
    }
    FileDescriptor content(fd);
    Result result = sendChunks(content.get(), status);
    if (VHDatabase::database().terminating()) {
        VHLog(kLogMain,
              "Upload interrupted due to the application termination. Will continue after the "
              "restart.");
        return {Outcome::Interrupted, std::nullopt};
    }
    if (result.outcome == Outcome::Failed) return contentFailure();
    return result;
}

// A saved status counts only while the content it began with is unchanged:
// the service holds a prefix of those bytes.
std::optional<VHFileUploadStatus> VHUploadOperation::resumableStatus() {
    VHDatabase& db = VHDatabase::database();
    std::optional<VHFileUploadStatus> saved = db.uploadStatusForFile(sent_);
    if (!saved) return std::nullopt;
    VHLog(kLogMain, "Found previously started upload token.");
    std::string path = VHFileCache::fileCache().pathForFileCache(sent_);
    if (saved->fileHash.empty() || saved->fileHash != VHFileSha256(path)) {
        VHLog(kLogMain, "Saved upload of %@ began with other contents. Starting it again.",
              sent_.publicName);
        db.deleteUploadStatusForFile(sent_);
        return std::nullopt;
    }
    return saved;
}

std::optional<VHUploadOperation::Result> VHUploadOperation::beginUpload(
    const ManagedShare& share, VHFileUploadStatus& status) {
    int32_t type = sent_.status == kStatusCreated ? kEventCreate : kEventUpdate;
    std::optional<VHNewAPIJournalEvent> event = createNewAPIEventForFile(type);
    std::optional<VHNewAPIResponce> response;
    if (event) response = sendNewFileApiRequest(*event, share);
    // 400/7 carries no data: the service took the change but lost its answer.
    if (response && response->hasCode(kReasonAlreadyDone)) {
        delegate_->noteUploadFinished(sent_, false);
        VHLog(kLogMain,
              "Received 400/7 upload reply: small file was uploaded, but we did not receive "
              "reply. Considering upload as successfully.");
        return Result{Outcome::Finished, std::nullopt};
    }
    if (!response || !response->Data) {
        VHLog(kLogMain, "Warning! Failing upload: cannot receive responce from the server. ");
        return contentFailure();
    }
    if (sent_.fileSize == 0) {
        delegate_->noteUploadFinished(sent_, false);
        VHLog(kLogMain, "File upload succeeded.");
        return Result{Outcome::Finished, response->Data->ClientJournalEvent};
    }
    std::string url = response->Data->Url.value_or("");
    if (url.empty()) {
        VHLog(kLogMain, "Warning! Failing upload: upload url is empty.");
        return contentFailure();
    }
    // The chunks go wherever this says: only over TLS.
    if (url.rfind("https://", 0) != 0) {
        VHLog(kLogMain, "Warning! Failing upload: upload url %@ is not https.", url);
        return contentFailure();
    }
    status.token = url;
    status.progress = 0;
    if (static_cast<int64_t>(sent_.fileSize) > kResumableSize) {
        status.fileHash = VHFileSha256(VHFileCache::fileCache().pathForFileCache(sent_));
        VHDatabase::database().updateUploadStatus(status);
    }
    return std::nullopt;
}

int VHUploadOperation::openFileForReading() {
    std::string path = VHFileCache::fileCache().pathForFileCache(sent_);
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
        VHLog(kLogMain, "Error: upload for file %@ is missing.", sent_.publicName);
    }
    return fd;
}

VHUploadOperation::Result VHUploadOperation::sendChunks(int fd, VHFileUploadStatus& status) {
    VHDatabase& db = VHDatabase::database();
    const int64_t size = static_cast<int64_t>(sent_.fileSize);
    const bool saved = size > kResumableSize;
    ChunkLoop loop;
    loop.position = loop.start = status.progress;
    loop.timeout = timeouts_.initial;
    auto failAndForget = [&] {
        if (saved) db.deleteUploadStatusForFile(sent_);
        return Result{Outcome::Failed, std::nullopt};
    };
    while (loop.position < size) {
        if (db.terminating()) return {Outcome::Interrupted, std::nullopt};
        if (isCancelled()) return uploadCancelled();
        const int64_t length = loop.resend ? static_cast<int64_t>(loop.chunk.size())
                                           : std::min(size - loop.position, loop.chunkSize);
        if (loop.resend) {
            if (loop.retransmits > kMaxRetransmits) {
                VHLog(kLogMain, "Too many retransmits for the file %@. Restarting upload.",
                      sent_.publicName);
                return {Outcome::Failed, std::nullopt};
            }
            VHLog(kLogMain,
                  "Re-uploading chunk (%ld, %ld) of file %@ due to the previous request timeout or "
                  "upload error. Try %d",
                  loop.position, length, sent_.publicName, loop.retransmits);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        } else {
            loop.chunk.resize(static_cast<size_t>(length));
            if (preadFully(fd, loop.chunk.data(), loop.chunk.size(), loop.position) != length) {
                VHLog(kLogMain,
                      "Upload request failed: %@, cannot read enough from upload file, error %d",
                      sent_.publicName, errno);
                return {Outcome::Failed, std::nullopt};
            }
        }
        VHHttpRequest request;
        request.method = "PUT";
        request.url = status.token;
        request.timeout = loop.timeout;
        request.keepGoing = [this] { return !isCancelled(); };
        request.headers.emplace_back("Content-Range", contentRange(loop.position, length, size));
        request.body = loop.chunk;
        VHLog(kLogMain, "Uploading chunk (%ld, %ld) of file %@", loop.position, length,
              sent_.publicName);
        auto began = std::chrono::steady_clock::now();
        VHHttpResponse response = VHHttp::send(request);
        double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        if (isCancelled()) return uploadCancelled();

        if (response.body.empty()) {
            if (response.error.timedOut()) {
                VHLog(kLogMain, "Upload request timeout detected. Re-uploading.");
                if (loop.timeout < timeouts_.ceiling) loop.timeout += timeouts_.raise;
                ++loop.retransmits;
                loop.resend = true;
                continue;
            }
            if (response.error) {
                VHLog(kLogMain, "Upload request error %ld (%@). Scheduling retransmit of the file.",
                      static_cast<long>(response.error.code), response.error.message);
            } else {
                VHLog(kLogMain,
                      "Warning! No responce body for the file chunk upload API request. "
                      "Retransmitting later. Responce : %@",
                      VHHttp::describeResponse(response, false));
            }
            return {Outcome::Failed, std::nullopt};
        }
        std::string error;
        std::optional<VHNewAPIResponce> parsed =
            VHParseRecord<VHNewAPIResponce>(response.body, &error);
        if (!parsed) {
            VHLog(kLogMain,
                  "Warning! Cannot parse new file API chunk upload responce, error %@. Responce is "
                  "%@.",
                  error, response.body);
            return {Outcome::Failed, std::nullopt};
        }
        if (response.status == 202) {
            loop.position += length;
            loop.totalSeconds += seconds;
            if (loop.totalSeconds >= kSpeedAfterSeconds) {
                VHTransferSpeeds::lastUploadSpeed =
                    static_cast<double>(loop.position - loop.start) / loop.totalSeconds;
            }
            if (loop.chunkSize < kMaxChunkSize && seconds < kFastChunkSeconds) {
                loop.chunkSize *= 2;
            } else if (loop.chunkSize > kMinChunkSize && seconds > kSlowChunkSeconds) {
                loop.chunkSize /= 2;
            }
            VHLog(kLogMain, "Progress %li", loop.position);
            delegate_->noteUploadProgress(sent_, loop.position);
            loop.resend = false;
        } else if (response.status == 200 || response.status == 201) {
            delegate_->noteUploadFinished(sent_, false);
            db.markFileDownloaded(sent_);
            if (saved) db.deleteUploadStatusForFile(sent_);
            VHLog(kLogMain, "File %@ upload succeeded.", sent_.publicName);
            std::optional<VHNewAPIRecordedEvent> journal;
            if (parsed->Data) journal = parsed->Data->ClientJournalEvent;
            return {Outcome::Finished, journal};
        } else if (response.status == 400 && parsed->hasCode(kReasonUploadPosition)) {
            int64_t current = parsed->Data ? parsed->Data->CurrentPosition.value_or(-1) : -1;
            if (current < 0 || current > size) return failAndForget();
            loop.position = current;
            loop.resend = false;
            status.progress = current;
            if (saved) db.updateUploadStatus(status);
            VHLog(kLogMain, "New file API upload: got 400/16 reply, moving upload position to %ld",
                  current);
            delegate_->noteUploadProgress(sent_, current);
        } else if (response.status == 400) {
            VHLog(kLogMain,
                  "Warning! Unknown responce code for 400 reply of new file API chunk upload "
                  "request. Retransmitting later. Responce : %@",
                  response.body);
            return failAndForget();
        } else if (response.status == 404) {
            VHLog(kLogMain, "Warning! Wrong upload. Message %@. ", parsed->Message.value_or(""));
            return failAndForget();
        } else {
            VHLog(kLogMain,
                  "Warning! Invalid responce code for new file API chunk upload request. "
                  "Retransmitting later. Responce : %@, body %@",
                  VHHttp::describeResponse(response, false), response.body);
            return failAndForget();
        }
    }
    // Every byte was taken and no answer said the file is complete: the
    // service lost track; the next try starts over.
    return failAndForget();
}

VHUploadOperation::Result VHUploadOperation::contentFailure() {
    delegate_->noteUploadFinished(sent_, true);
    return {Outcome::Failed, std::nullopt};
}

}  // namespace vh
