// Plain values of the emulator's state: what a table row holds, and the
// result of an operation that can be refused with an HTTP status and a
// reason code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace vh::emulator {

struct VHEmulatorDomain {
    std::string domainId;
    std::string url;  // "d1.varnholt.test"
    std::string name;
    std::string resellerId;
};

struct VHEmulatorUser {
    std::string userId;
    std::string email;
    std::string password;  // clear text: this is a test server
    std::string name;
    std::string companyId;
    std::string primaryDomainId;
    bool requireKnownDevices = false;
    double createTime = 0;
    double lastLoginTime = 0;
};

// A user's place in a domain and the secrets that go with it.
struct VHEmulatorMembership {
    std::string email;
    std::string domainId;
    std::string token;   // "UserDomainToken", also the file API's "DomainToken"
    std::string cookie;  // authenticates the realtime channel
};

struct VHEmulatorDevice {
    std::string deviceId;
    std::string email;
    bool wipe = false;
};

struct VHEmulatorShare {
    std::string shareId;
    std::string domainId;
    std::string name;
    std::string companyId;
    std::string vshareId;
    std::string ownerEmail;
    // A subfolder share is a folder (rootFolder) of another share.
    std::string parentShareId;
    std::string rootFolder;
    int64_t tick = 0;  // last journal tick; only shares that hold items count
    double createTime = 0;
    double modifyTime = 0;

    bool isSubfolder() const { return !parentShareId.empty(); }
};

// How a share's items are reached: a subfolder share shows the items below
// one folder of the share that holds them.
struct VHShareView {
    VHEmulatorShare share;
    std::string storeShareId;  // the share that holds the items and the ticks
    std::string rootId;        // parent id of the view's top-level items
};

inline constexpr int kAclReadOnly = 0;
inline constexpr int kAclReadWrite = 1;
inline constexpr int kAclOwner = 2;

struct VHEmulatorAcl {
    std::string shareId;
    std::string email;
    int aclType = kAclReadWrite;
    std::string token;  // "AclToken", the catch-up token
};

struct VHEmulatorItem {
    std::string internalName;
    std::string shareId;  // the share that holds it (never a subfolder share)
    std::string parentId;
    std::string name;
    bool isFile = true;
    uint64_t size = 0;
    std::string uploadName;
    std::string blobId;  // empty for no content
    std::string hash;    // SHA-256 of the content, lower-case hex
    std::string user;    // who made the last change
    int64_t tick = 0;
    int64_t updateTick = 0;
    int64_t createTick = 0;
    double createTime = 0;
    double accessTime = 0;
    double writeTime = 0;
    int64_t attributes = 0;
    std::optional<int64_t> permissions;
    bool deleted = false;
    bool locked = false;
    std::string lockDeviceId;
    std::string lockedBy;
    int64_t lockTime = 0;
};

// Who asks for a change, as the journal records it.
struct VHChangeOrigin {
    std::string user;
    std::string deviceId;
    std::string transmitId;  // the client's event id; a new one when empty
};

struct VHEmulatorFailure {
    int status = 500;
    int code = 0;
    std::string message;
    // The lock that refused the change (status 423).
    std::optional<VHEmulatorItem> lockedItem;
};

template <typename T>
class VHEmulatorResult {
  public:
    VHEmulatorResult(T value) : value_(std::move(value)) {}
    VHEmulatorResult(VHEmulatorFailure failure) : failure_(std::move(failure)) {}

    explicit operator bool() const { return value_.has_value(); }
    T& operator*() { return *value_; }
    const T& operator*() const { return *value_; }
    T* operator->() { return &*value_; }
    const T* operator->() const { return &*value_; }
    const VHEmulatorFailure& failure() const { return failure_; }

  private:
    std::optional<T> value_;
    VHEmulatorFailure failure_;
};

inline VHEmulatorFailure VHFail(int status, int code, std::string message) {
    return VHEmulatorFailure{status, code, std::move(message), std::nullopt};
}

}  // namespace vh::emulator
