// Values the emulator and the client must agree on, and the emulator's own
// fixed settings. The client takes the direct-link key and IV from its
// configuration; these are the values to configure for the emulator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vh::emulator {

// AES-256-CBC key (32 bytes) and initialisation vector (16 bytes) of direct
// links, as plain ASCII so that they fit a settings file as they stand.
inline constexpr std::string_view kDirectLinkKey = "VarnholtEmulatorDirectLinkKey-01";
inline constexpr std::string_view kDirectLinkIV = "VarnholtEmuIV-01";
static_assert(kDirectLinkKey.size() == 32 && kDirectLinkIV.size() == 16);

inline constexpr std::string_view kDefaultGlobalHost = "global.varnholt.test";
inline constexpr std::string_view kDefaultListen = "127.0.0.1:0";

// Host name prefixes of a domain's services ("clientgateway.d1.varnholt.test").
inline constexpr std::string_view kGatewayPrefix = "clientgateway.";
inline constexpr std::string_view kFilecachePrefix = "filecache01.";
inline constexpr std::string_view kWebclientPrefix = "webclient.";

// Every admin path starts with this.
inline constexpr std::string_view kAdminPrefix = "/_emulator/";

// How long the server waits for the next bytes of a request; also how long
// a chunk waits for another chunk of its upload to finish.
inline constexpr int kReadTimeoutSeconds = 120;

// Service threads: 16 streaming clients plus logins, catch-ups, admin calls
// and held realtime polls.
inline constexpr size_t kServerThreads = 64;

// How long an upload may take from its event to its last chunk, and how
// many bytes the blobs of all uploads in progress may hold reserved.
inline constexpr double kDefaultUploadLifetimeSeconds = 86400;
inline constexpr uint64_t kDefaultUploadReserveBytes = uint64_t(4) << 30;

// Largest page one catch-up request may ask for.
inline constexpr int64_t kMaxTickTake = 100000;

// JSON bodies larger than this are refused; contents stream and have no limit.
inline constexpr size_t kMaxJsonBody = 256u * 1024 * 1024;

// Domain events kept per domain for the realtime hub.
inline constexpr int64_t kKeptDomainEvents = 10000;

// The realtime hub: a space is written into a held poll every keep-alive
// interval, and a poll with nothing to deliver is answered empty after the
// connection time-out.
inline constexpr double kDefaultHubKeepAliveSeconds = 10;
inline constexpr double kDefaultHubConnectionTimeoutSeconds = 110;

// Reason codes ("Code") of file-API answers.
inline constexpr int kCodeOk = 0;
inline constexpr int kCodeBadRequest = 1;
inline constexpr int kCodeAccessDenied = 2;
inline constexpr int kCodeNameExists = 3;
inline constexpr int kCodeUploadUnknown = 5;
inline constexpr int kCodeFault = 9;
inline constexpr int kCodePositionMismatch = 16;
inline constexpr int kCodeItemUnknown = 17;
inline constexpr int kCodeLocked = 23;

}  // namespace vh::emulator
