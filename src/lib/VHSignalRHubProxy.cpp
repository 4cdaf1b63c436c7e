#include "lib/VHSignalRHubProxy.h"

#include "lib/VHSignalRHubConnection.h"
#include "lib/VHStrings.h"

namespace vh {

VHSignalRHubProxy::VHSignalRHubProxy(VHSignalRHubConnection& connection, std::string hubName)
    : connection_(connection), hubName_(std::move(hubName)) {}

void VHSignalRHubProxy::on(const std::string& eventName, EventHandler handler) {
    handlers_[VHLowercase(eventName)] = std::move(handler);
}

void VHSignalRHubProxy::invoke(const std::string& method, VHJson arguments, InvokeCompletion done) {
    connection_.invoke(hubName_, method, std::move(arguments), std::move(done));
}

void VHSignalRHubProxy::dispatch(const std::string& eventName, const VHJson& arguments) const {
    auto found = handlers_.find(VHLowercase(eventName));
    if (found == handlers_.end()) return;
    // A copy: the handler may stop or delete the connection, and this proxy with it.
    EventHandler handler = found->second;
    handler(arguments.is_array() && !arguments.empty() ? arguments.front() : VHJson());
}

}  // namespace vh
