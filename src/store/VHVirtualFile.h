// The service's record of one item (file or folder), as catch-up, realtime
// events and the file-cache API carry it, and its lock. Keys keep the
// service's own spelling ("ParrentId", "FilehHash").
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lib/VHJsonRecord.h"

namespace vh {

struct FileLock {
    std::optional<std::string> DeviceId;
    std::optional<bool> IsLocked;
    std::optional<double> LockTime;
    std::optional<std::string> LockedBy;

    static auto jsonKeys() {
        return std::tuple{
            VHKey{"DeviceId", &FileLock::DeviceId}, VHKey{"IsLocked", &FileLock::IsLocked},
            VHKey{"LockTime", &FileLock::LockTime}, VHKey{"LockedBy", &FileLock::LockedBy}};
    }
};

struct VHVirtualFile {
    std::optional<std::string> ShareId;
    std::optional<std::string> UploadUrl;
    std::optional<std::string> UploadName;
    std::optional<std::string> ArchivedFullName;
    std::optional<std::string> InternalName;
    std::optional<std::string> ParrentId;
    std::optional<std::string> ParentShareId;
    std::optional<std::string> PublicName;
    std::optional<std::string> User;
    std::optional<std::string> LastUploadName;
    std::optional<std::string> FilehHash;
    uint64_t Tick = 0;
    uint64_t ShareTick = 0;
    uint64_t UpdateTick = 0;
    uint64_t CreateTick = 0;
    std::optional<uint64_t> EndOfFile;
    std::optional<uint64_t> AllocationSize;
    std::optional<uint64_t> Attributes;
    std::optional<uint64_t> POSIXPermissions;
    std::optional<VHDate> CreationTime;
    std::optional<VHDate> LastAccessTime;
    std::optional<VHDate> LastWriteTime;
    std::optional<::vh::FileLock> FileLock;
    bool Local = false;
    bool Deleted = false;
    bool IsFile = false;

    static auto jsonKeys() {
        using R = VHVirtualFile;
        return std::tuple{VHKey{"ShareId", &R::ShareId},
                          VHKey{"UploadUrl", &R::UploadUrl},
                          VHKey{"UploadName", &R::UploadName},
                          VHKey{"ArchivedFullName", &R::ArchivedFullName},
                          VHKey{"InternalName", &R::InternalName},
                          VHKey{"ParrentId", &R::ParrentId},
                          VHKey{"ParentShareId", &R::ParentShareId},
                          VHKey{"PublicName", &R::PublicName},
                          VHKey{"User", &R::User},
                          VHKey{"LastUploadName", &R::LastUploadName},
                          VHKey{"FilehHash", &R::FilehHash},
                          VHKey{"Tick", &R::Tick},
                          VHKey{"ShareTick", &R::ShareTick},
                          VHKey{"UpdateTick", &R::UpdateTick},
                          VHKey{"CreateTick", &R::CreateTick},
                          VHKey{"EndOfFile", &R::EndOfFile},
                          VHKey{"AllocationSize", &R::AllocationSize},
                          VHKey{"Attributes", &R::Attributes},
                          VHKey{"POSIXPermissions", &R::POSIXPermissions},
                          VHKey{"CreationTime", &R::CreationTime},
                          VHKey{"LastAccessTime", &R::LastAccessTime},
                          VHKey{"LastWriteTime", &R::LastWriteTime},
                          VHKey{"FileLock", &R::FileLock},
                          VHKey{"Local", &R::Local},
                          VHKey{"Deleted", &R::Deleted},
                          VHKey{"IsFile", &R::IsFile}};
    }
};

}  // namespace vh
