// Records of the service's file-cache REST API: the journal event the client
// posts for every local change, the service's answers, and the public-link
// request. Keys keep the service's own spelling ("Responce").
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lib/VHJsonRecord.h"
#include "store/VHVirtualFile.h"

namespace vh {

// ClientJournalEventType values the client sends.
enum VHJournalEventType : int32_t {
    kEventCreate = 0,
    kEventDelete = 1,
    kEventRename = 2,
    kEventUpdate = 3,
    kEventLock = 13,
    kEventUnlock = 14,
};

// Reason codes of the service that the client acts on.
enum VHNewAPIReason : int64_t {
    kReasonAlreadyDone = 7,      // the change arrived but its answer did not
    kReasonUploadPosition = 16,  // the service holds a different amount of the upload
    kReasonUnknownItem = 17,     // the item is not on the server
};

struct VHNewAPIJournalEvent {
    std::string TransmitId;
    std::optional<std::string> UserOrigin;
    int32_t ClientJournalEventType = 0;
    std::optional<VHVirtualFile> VhVirtualFile;
    std::string DeviceId;
    std::optional<std::string> ShareId;
    uint64_t ShareTick = 0;
    int64_t TransmitCounter = 0;
    std::optional<VHDate> TransmitTimeout;
    uint64_t CreateTick = 0;

    static auto jsonKeys() {
        using R = VHNewAPIJournalEvent;
        return std::tuple{VHKey{"TransmitId", &R::TransmitId},
                          VHKey{"UserOrigin", &R::UserOrigin},
                          VHKey{"ClientJournalEventType", &R::ClientJournalEventType},
                          VHKey{"VhVirtualFile", &R::VhVirtualFile},
                          VHKey{"DeviceId", &R::DeviceId},
                          VHKey{"ShareId", &R::ShareId},
                          VHKey{"ShareTick", &R::ShareTick},
                          VHKey{"TransmitCounter", &R::TransmitCounter},
                          VHKey{"TransmitTimeout", &R::TransmitTimeout},
                          VHKey{"CreateTick", &R::CreateTick}};
    }
};

// What the client reads of the event the service recorded: the item as it
// now stands there (answers may leave it out).
struct VHNewAPIRecordedEvent {
    std::optional<VHVirtualFile> VhVirtualFile;

    static auto jsonKeys() {
        return std::tuple{VHKey{"VhVirtualFile", &VHNewAPIRecordedEvent::VhVirtualFile}};
    }
};

struct VHNewAPIResponceData {
    std::optional<VHNewAPIRecordedEvent> ClientJournalEvent;
    std::optional<std::string> Url;
    std::optional<int64_t> CurrentPosition;
    std::optional<int64_t> ExpectedLength;

    static auto jsonKeys() {
        using R = VHNewAPIResponceData;
        return std::tuple{VHKey{"ClientJournalEvent", &R::ClientJournalEvent},
                          VHKey{"Url", &R::Url}, VHKey{"CurrentPosition", &R::CurrentPosition},
                          VHKey{"ExpectedLength", &R::ExpectedLength}};
    }
};

struct VHNewAPIResponce {
    std::optional<VHNewAPIResponceData> Data;
    std::optional<std::string> Message;
    std::optional<int64_t> Code;

    static auto jsonKeys() {
        using R = VHNewAPIResponce;
        return std::tuple{VHKey{"Data", &R::Data}, VHKey{"Message", &R::Message},
                          VHKey{"Code", &R::Code}};
    }
    bool hasCode(int64_t code) const { return Code && *Code == code; }
};

struct VHNewAPICreatePublicLink {
    std::string ShareId;
    std::string InternalName;
    int64_t DaysToExpire = 0;
    int64_t MaxUse = 0;
    std::string Message;
    bool EnablePassword = false;
    std::string Password;

    static auto jsonKeys() {
        using R = VHNewAPICreatePublicLink;
        return std::tuple{
            VHKey{"ShareId", &R::ShareId},           VHKey{"InternalName", &R::InternalName},
            VHKey{"DaysToExpire", &R::DaysToExpire}, VHKey{"MaxUse", &R::MaxUse},
            VHKey{"Message", &R::Message},           VHKey{"EnablePassword", &R::EnablePassword},
            VHKey{"Password", &R::Password}};
    }
};

struct VHNewAPICreatePublicLinkResponceData {
    std::optional<std::string> FullLink;
    static auto jsonKeys() {
        return std::tuple{VHKey{"FullLink", &VHNewAPICreatePublicLinkResponceData::FullLink}};
    }
};

struct VHNewAPICreatePublicLinkResponce {
    std::optional<VHNewAPICreatePublicLinkResponceData> Data;
    std::optional<std::string> Message;
    static auto jsonKeys() {
        using R = VHNewAPICreatePublicLinkResponce;
        return std::tuple{VHKey{"Data", &R::Data}, VHKey{"Message", &R::Message}};
    }
};

// A change as the realtime channel broadcasts it (lower-case "c" in its type).
struct ClientJournalEvent {
    std::optional<std::string> TransmitId;
    std::optional<std::string> UserOrigin;
    std::optional<int32_t> clientJournalEventType;
    std::optional<std::string> VShare;
    std::optional<std::string> ShareId;
    std::optional<uint64_t> ShareTick;
    std::optional<int64_t> TransmitCounter;
    std::optional<uint64_t> CreateTick;
    std::optional<VHDate> TransmitTimeout;
    std::optional<VHVirtualFile> VhVirtualFile;

    static auto jsonKeys() {
        using R = ClientJournalEvent;
        return std::tuple{VHKey{"TransmitId", &R::TransmitId},
                          VHKey{"UserOrigin", &R::UserOrigin},
                          VHKey{"clientJournalEventType", &R::clientJournalEventType},
                          VHKey{"VShare", &R::VShare},
                          VHKey{"ShareId", &R::ShareId},
                          VHKey{"ShareTick", &R::ShareTick},
                          VHKey{"TransmitCounter", &R::TransmitCounter},
                          VHKey{"CreateTick", &R::CreateTick},
                          VHKey{"TransmitTimeout", &R::TransmitTimeout},
                          VHKey{"VhVirtualFile", &R::VhVirtualFile}};
    }
};

}  // namespace vh
