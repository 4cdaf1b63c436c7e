// A private X server for the windows of a test run: Xvfb on a display
// number it picks itself (-displayfd), stopped with the object.
#pragma once

#include <sys/types.h>

#include <string>

namespace vh::test {

class VHXvfb {
  public:
    VHXvfb() = default;
    ~VHXvfb();
    VHXvfb(const VHXvfb&) = delete;
    VHXvfb& operator=(const VHXvfb&) = delete;

    // Starts the server and waits (30 s at most) until it serves a display;
    // false, with the reason in `why`, when Xvfb is missing or does not start.
    bool start(std::string& why);
    // ":<number>", the value for DISPLAY.
    const std::string& display() const { return display_; }

  private:
    pid_t pid_ = -1;
    std::string display_;
};

}  // namespace vh::test
