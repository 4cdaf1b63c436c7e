#include "desktop/VHUnixSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <csignal>

namespace vh {

namespace {

int gPipe[2] = {-1, -1};

void onSignal(int number) {
    unsigned char byte = static_cast<unsigned char>(number);
    ssize_t written = ::write(gPipe[1], &byte, 1);  // async-signal-safe
    (void)written;
}

}  // namespace

void VHUnixSignals::install() {
    if (gPipe[0] != -1 || pipe2(gPipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

VHUnixSignals::VHUnixSignals(QObject* parent) : QObject(parent) {
    install();
    if (gPipe[0] == -1) return;
    notifier_ = new QSocketNotifier(gPipe[0], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &VHUnixSignals::readPipe);
}

VHUnixSignals::~VHUnixSignals() {
    // The process is on its way out: a late signal must neither kill it with
    // another status nor write into a reused descriptor.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
    for (int& fd : gPipe) {
        if (fd != -1) ::close(fd);
        fd = -1;
    }
}

void VHUnixSignals::readPipe() {
    unsigned char byte = 0;
    while (::read(gPipe[0], &byte, 1) == 1) emit terminationRequested(byte);
}

}  // namespace vh
