// Records of the realtime channel: the envelope of every hub message, the
// client description of the online message, and the domain event.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "lib/VHJsonRecord.h"

namespace vh {

enum VHSRMessageType : int32_t {
    kSRJournal = 0,
    kSRMOnline = 2,
    kSRBroadCast = 3,
    kSRShareAdded = 8,
    kSRShareRemoved = 9,
    kSRDomainEvent = 12,
};

struct Envelope {
    int32_t MessageType = 0;
    std::optional<std::string> RnaReciver;
    std::optional<std::string> RnaSender;
    VHDate SendTime;
    VHDate ReSendTime;
    int32_t ReSendInterval = 0;
    int32_t ReSendCount = 0;
    std::string Message;
    int32_t Origin = 0;
    std::string ChannelId;

    static auto jsonKeys() {
        using R = Envelope;
        return std::tuple{
            VHKey{"MessageType", &R::MessageType}, VHKey{"RnaReciver", &R::RnaReciver},
            VHKey{"RnaSender", &R::RnaSender},     VHKey{"SendTime", &R::SendTime},
            VHKey{"ReSendTime", &R::ReSendTime},   VHKey{"ReSendInterval", &R::ReSendInterval},
            VHKey{"ReSendCount", &R::ReSendCount}, VHKey{"Message", &R::Message},
            VHKey{"Origin", &R::Origin},           VHKey{"ChannelId", &R::ChannelId}};
    }
};

struct DomainFilecaches {
    std::optional<std::string> CurrentFilecache;
    std::optional<int64_t> LastUsedTick;
    std::optional<VHJson> FilecacheList;

    static auto jsonKeys() {
        using R = DomainFilecaches;
        return std::tuple{VHKey{"CurrentFilecache", &R::CurrentFilecache},
                          VHKey{"LastUsedTick", &R::LastUsedTick},
                          VHKey{"FilecacheList", &R::FilecacheList}};
    }
};

struct ClientInfo {
    std::string ClientName;
    int32_t ClientType = 0;
    std::optional<std::string> ConnectionId, TransportMethod;
    std::optional<std::vector<std::string>> ShareList, GroupList;
    std::optional<double> RemainingSize, ReservedSize, LargestSize;
    std::string ConnectionUrl;
    std::string UserId;
    std::optional<std::map<std::string, ::vh::DomainFilecaches>> DomainFilecaches;

    static auto jsonKeys() {
        using R = ClientInfo;
        return std::tuple{VHKey{"ClientName", &R::ClientName},
                          VHKey{"ClientType", &R::ClientType},
                          VHKey{"ConnectionId", &R::ConnectionId},
                          VHKey{"TransportMethod", &R::TransportMethod},
                          VHKey{"ShareList", &R::ShareList},
                          VHKey{"GroupList", &R::GroupList},
                          VHKey{"RemainingSize", &R::RemainingSize},
                          VHKey{"ReservedSize", &R::ReservedSize},
                          VHKey{"LargestSize", &R::LargestSize},
                          VHKey{"ConnectionUrl", &R::ConnectionUrl},
                          VHKey{"UserId", &R::UserId},
                          VHKey{"DomainFilecaches", &R::DomainFilecaches}};
    }
};

struct DomainEvent {
    std::optional<std::string> Update, Company;
    int32_t DomainEventType = 0;
    std::optional<std::string> Delete, New;

    static auto jsonKeys() {
        using R = DomainEvent;
        return std::tuple{VHKey{"Update", &R::Update}, VHKey{"Company", &R::Company},
                          VHKey{"DomainEventType", &R::DomainEventType},
                          VHKey{"Delete", &R::Delete}, VHKey{"New", &R::New}};
    }
};

}  // namespace vh
