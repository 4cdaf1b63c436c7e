// The client side of one hub of a hub connection: handlers of the hub's
// events and invocations of its methods. It belongs to its connection,
// lives as long as it and is used on the connection's thread only.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "lib/VHJsonRecord.h"

namespace vh {

class VHSignalRHubConnection;

class VHSignalRHubProxy {
  public:
    using EventHandler = std::function<void(const VHJson& firstArgument)>;
    using InvokeCompletion =
        std::function<void(bool ok, const VHJson& result, const std::string& error)>;

    VHSignalRHubProxy(VHSignalRHubConnection& connection, std::string hubName);

    const std::string& hubName() const { return hubName_; }

    // The handler gets the event's first argument (null when it has none).
    // Event names compare without case; a later handler replaces an earlier.
    void on(const std::string& eventName, EventHandler handler);
    // `arguments` is an array. `done` runs once, later on the connection's
    // thread: with the method's result, or with the error that ended it.
    void invoke(const std::string& method, VHJson arguments, InvokeCompletion done);

    // Runs the handler of `eventName` with the first of `arguments`.
    void dispatch(const std::string& eventName, const VHJson& arguments) const;

  private:
    VHSignalRHubConnection& connection_;
    std::string hubName_;
    std::map<std::string, EventHandler> handlers_;  // by lower-case event name
};

}  // namespace vh
