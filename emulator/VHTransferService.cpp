#include "VHTransferService.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "VHEmulatorAccess.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

// "bytes A-B/C"; nothing when the text is not of that form.
std::optional<std::array<uint64_t, 3>> parseContentRange(const std::string& text) {
    uint64_t a = 0, b = 0, c = 0;
    int consumed = 0;
    if (std::sscanf(text.c_str(), "bytes %" SCNu64 "-%" SCNu64 "/%" SCNu64 "%n", &a, &b, &c,
                    &consumed) != 3 ||
        static_cast<size_t>(consumed) != text.size()) {
        return std::nullopt;
    }
    return std::array<uint64_t, 3>{a, b, c};
}

VHJson positionData(uint64_t position, uint64_t expected, const std::string& url) {
    return {{"CurrentPosition", position}, {"ExpectedLength", expected}, {"Url", url}};
}

}  // namespace

void VHTransferService::registerRoutes(VHEmulatorServer& server) {
    server.route(VHHostKind::Filecache, "GET", "/api/shares/([^/]+)/files/([^/]+)",
                 [this](VHEmulatorExchange& exchange) { download(exchange); });
    server.route(VHHostKind::Filecache, "PUT", "/api/uploads/([^/]+)",
                 [this](VHEmulatorExchange& exchange) { uploadChunk(exchange); });
}

void VHTransferService::download(VHEmulatorExchange& exchange) {
    int fd = -1;
    uint64_t size = 0;
    {
        auto guard = store_.db.lock();
        auto access = VHAuthorizeShare(store_, exchange, exchange.params[0], false);
        if (!access) return exchange.replyFailure(access.failure());
        auto item = store_.journal.itemByUploadName(exchange.params[1]);
        if (!item || item->deleted || !item->isFile ||
            !store_.journal.isInView(access->view, *item)) {
            return exchange.replyFailure(VHFail(404, kCodeItemUnknown, "No such content"));
        }
        size = item->size;
        // Opened under the lock: a newer version may remove the blob, not this descriptor.
        if (!item->blobId.empty()) fd = store_.blobs.openForReading(item->blobId);
    }
    if (size > 0 && fd < 0) {
        return exchange.replyFailure(VHFail(500, kCodeBadRequest, "Content is missing"));
    }
    uint64_t first = 0, end = size;
    std::string rangeText = exchange.header("Content-Range");
    if (!rangeText.empty()) {
        auto range = parseContentRange(rangeText);
        if (!range || (*range)[0] > (*range)[1] || (*range)[0] > size) {
            if (fd >= 0) ::close(fd);
            return exchange.replyFailure(VHFail(416, kCodeBadRequest, "Bad range " + rangeText));
        }
        first = (*range)[0];
        end = std::min((*range)[1], size);
    }
    exchange.replyFile(fd, first, end - first);
}

void VHTransferService::uploadChunk(VHEmulatorExchange& exchange) {
    const std::string& uploadName = exchange.params[0];
    auto range = parseContentRange(exchange.header("Content-Range"));
    if (!range || (*range)[0] > (*range)[1] || (*range)[1] >= (*range)[2]) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "Bad Content-Range"));
    }
    Chunk chunk{(*range)[0], (*range)[1], (*range)[2]};
    std::string url = "https://" + exchange.host + exchange.request.target;
    uint64_t position = 0;
    std::shared_ptr<VHUploadDigest> digest;
    auto upload = claimChunk(uploadName, exchange.query("token"), chunk, position, digest);
    if (!upload && upload.failure().code == kCodePositionMismatch) {
        const VHEmulatorFailure& failure = upload.failure();
        return exchange.reply(
            failure.status,
            VHApiResponse(failure.code, failure.message, positionData(position, chunk.total, url)));
    }
    if (!upload) return exchange.replyFailure(upload.failure());
    if (!receiveChunk(exchange, *upload, chunk, digest.get())) {
        auto guard = store_.db.lock();
        store_.uploads.release(uploadName);
        return exchange.replyFailure(
            VHFail(400, kCodeBadRequest, "The chunk's length differs from its Content-Range"));
    }
    if (chunk.last + 1 < chunk.total) {
        auto guard = store_.db.lock();
        store_.uploads.advance(uploadName, chunk.last + 1);
        store_.uploads.release(uploadName);
        return exchange.reply(202, VHApiResponse(kCodeOk, "Chunk taken",
                                                 positionData(chunk.last + 1, chunk.total, url)));
    }
    finishUpload(exchange, *upload, url, digest.get());
}

VHEmulatorResult<VHEmulatorUpload> VHTransferService::claimChunk(
    const std::string& uploadName, const std::string& token, const Chunk& chunk, uint64_t& position,
    std::shared_ptr<VHUploadDigest>& digest) {
    auto guard = store_.db.lock();
    auto upload = store_.uploads.find(uploadName);
    if (!upload) store_.expireUploads();
    if (!upload || token != upload->token) {
        return VHFail(404, kCodeUploadUnknown, "No upload " + uploadName);
    }
    if (chunk.total != upload->expected) {
        return VHFail(400, kCodeBadRequest, "The upload expects another length");
    }
    // A chunk sent again while an earlier one is still arriving waits for it
    // and is then answered from where the upload stands.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kReadTimeoutSeconds);
    bool idle = store_.uploads.awaitIdle(uploadName, guard, deadline);
    upload = store_.uploads.find(uploadName);
    if (!upload) return VHFail(404, kCodeUploadUnknown, "No upload " + uploadName);
    position = upload->position;
    if (!idle || chunk.first != position) {
        return VHFail(400, kCodePositionMismatch, "The upload stands at another position");
    }
    store_.uploads.claim(uploadName);
    digest = store_.uploads.digest(uploadName, chunk.first);
    return *upload;
}

bool VHTransferService::receiveChunk(VHEmulatorExchange& exchange, const VHEmulatorUpload& upload,
                                     const Chunk& chunk, VHUploadDigest* digest) {
    uint64_t length = chunk.last - chunk.first + 1;
    VHBlobWriter writer(store_.blobs.path(upload.blobId), chunk.first);
    // Hashed on a copy: a chunk that fails must leave the digest as it was.
    std::optional<VHSha256> hashing;
    if (digest) hashing = digest->sha256;
    bool complete = exchange.streamBody([&](const char* data, size_t size) {
        if (hashing) hashing->update(data, size);
        return writer.written() + size <= length && writer.append(data, size);
    });
    bool received = writer.finish() && complete && writer.written() == length;
    if (received && digest) {
        digest->sha256 = *hashing;
        digest->position = chunk.last + 1;
    }
    return received;
}

void VHTransferService::finishUpload(VHEmulatorExchange& exchange, const VHEmulatorUpload& upload,
                                     const std::string& url, const VHUploadDigest* digest) {
    auto hash = digest && digest->position == upload.expected ? digest->sha256.hex()
                                                              : store_.blobs.sha256(upload.blobId);
    // The claim holds until the upload is finished or abandoned: a repeated
    // last chunk must not finish it twice.
    auto guard = store_.db.lock();
    if (!store_.uploads.find(upload.uploadName)) {
        store_.uploads.release(upload.uploadName);
        return exchange.replyFailure(VHFail(404, kCodeUploadUnknown, "The upload is gone"));
    }
    auto view = store_.accounts.view(upload.shareId);
    if (!hash || !view) {
        store_.abandonUpload(upload.uploadName);
        return exchange.replyFailure(VHFail(404, kCodeItemUnknown, "The share is gone"));
    }
    VHContentVersion content{upload.blobId, upload.expected, *hash, upload.uploadName};
    auto item = store_.atomically([&] {
        auto stored = store_.journal.writeContent(*view, upload.fields, content, upload.origin,
                                                  upload.eventType == kEventUpdate);
        if (stored) store_.uploads.finish(upload.uploadName);
        return stored;
    });
    if (!item) {
        store_.abandonUpload(upload.uploadName);
        return exchange.replyFailure(item.failure());
    }
    VHJson data = positionData(upload.expected, upload.expected, url);
    data["ClientJournalEvent"] =
        VHJournalEventRecord(*item, upload.eventType, upload.origin, item->tick);
    exchange.reply(200, VHApiResponse(kCodeOk, "Upload complete", std::move(data)));
}

}  // namespace vh::emulator
