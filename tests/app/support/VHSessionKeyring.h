// A private D-Bus session bus for one test, optionally with a Secret Service
// (gnome-keyring-daemon, its login keyring unlocked). Both run as children of
// the test, in its HOME and XDG folders, and end with the object. The bus
// starts no service on demand, so that only what the test started answers.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace vh::test {

class VHSessionKeyring {
  public:
    VHSessionKeyring() = default;
    ~VHSessionKeyring();
    VHSessionKeyring(const VHSessionKeyring&) = delete;
    VHSessionKeyring& operator=(const VHSessionKeyring&) = delete;

    enum class Secrets {
        None,      // the bus alone: nothing answers for secrets
        Empty,     // a Secret Service without keyrings: it answers, keeps nothing
        Unlocked,  // a Secret Service whose login keyring is unlocked
    };

    // Starts the bus and the Secret Service asked for; false (with the
    // reason on stderr) when either does not come up in 20 s.
    bool start(Secrets secrets = Secrets::Unlocked);
    // The value for DBUS_SESSION_BUS_ADDRESS.
    const std::string& address() const { return address_; }

    // What `secret-tool lookup` finds for the attributes ("server X user Y");
    // nothing when no item matches.
    std::optional<std::string> lookup(const std::string& attributes) const;

  private:
    bool startBus();
    bool startKeyring(bool unlocked);
    // Runs `command` on the bus; its output and error output.
    std::string shell(const std::string& command, int* status) const;

    pid_t busPid_ = -1;
    pid_t keyringPid_ = -1;
    std::string address_;
};

}  // namespace vh::test
