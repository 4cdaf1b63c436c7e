// varnholt-emulator [--listen 127.0.0.1:0] [--state DIR] [--seed FILE]
//                   [--upload-ttl SECONDS] [--upload-reserve BYTES]
//                   [--hub-keepalive SECONDS] [--hub-timeout SECONDS]
//
// Serves the service on one HTTPS port until SIGINT or SIGTERM. Prints
// "listening HOST:PORT" and "ca-file PATH" on standard output once ready.
#include <signal.h>
#include <stdlib.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <string>

#include "VHEmulator.h"
#include "VHEmulatorDefaults.h"

namespace {

struct Arguments {
    std::string listen{vh::emulator::kDefaultListen};
    std::string state;
    std::string seed;
    uint64_t uploadTtl = static_cast<uint64_t>(vh::emulator::kDefaultUploadLifetimeSeconds);
    uint64_t uploadReserve = vh::emulator::kDefaultUploadReserveBytes;
    uint64_t hubKeepAlive = static_cast<uint64_t>(vh::emulator::kDefaultHubKeepAliveSeconds);
    uint64_t hubTimeout = static_cast<uint64_t>(vh::emulator::kDefaultHubConnectionTimeoutSeconds);
};

bool parseCount(const std::string& text, uint64_t& value) {
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool parseArguments(int argc, char** argv, Arguments& arguments) {
    for (int i = 1; i < argc; ++i) {
        std::string option = argv[i];
        if (i + 1 >= argc) return false;
        std::string value = argv[++i];
        if (option == "--listen") {
            arguments.listen = value;
        } else if (option == "--state") {
            arguments.state = value;
        } else if (option == "--seed") {
            arguments.seed = value;
        } else if (option == "--upload-ttl") {
            if (!parseCount(value, arguments.uploadTtl)) return false;
        } else if (option == "--upload-reserve") {
            if (!parseCount(value, arguments.uploadReserve)) return false;
        } else if (option == "--hub-keepalive") {
            if (!parseCount(value, arguments.hubKeepAlive) || arguments.hubKeepAlive == 0) {
                return false;
            }
        } else if (option == "--hub-timeout") {
            if (!parseCount(value, arguments.hubTimeout) || arguments.hubTimeout == 0) return false;
        } else {
            return false;
        }
    }
    return true;
}

bool splitListen(const std::string& listen, std::string& host, int& port) {
    auto colon = listen.rfind(':');
    if (colon == std::string::npos) return false;
    host = listen.substr(0, colon);
    try {
        port = std::stoi(listen.substr(colon + 1));
    } catch (const std::exception&) {
        return false;
    }
    return !host.empty() && port >= 0 && port <= 65535;
}

std::string makeTemporaryState() {
    std::string pattern = (std::filesystem::temp_directory_path() / "varnholt-emulator-XXXXXX");
    return mkdtemp(pattern.data()) ? pattern : std::string();
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    vh::emulator::VHEmulator::Options options;
    if (!parseArguments(argc, argv, arguments) ||
        !splitListen(arguments.listen, options.listenHost, options.port)) {
        std::fprintf(
            stderr,
            "usage: varnholt-emulator [--listen 127.0.0.1:0] [--state DIR] [--seed FILE]\n"
            "                         [--upload-ttl SECONDS] [--upload-reserve BYTES]\n"
            "                         [--hub-keepalive SECONDS] [--hub-timeout SECONDS]\n");
        return 2;
    }
    // Signals are taken by sigwait below, on this thread only.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    bool temporary = arguments.state.empty();
    options.stateDir = temporary ? makeTemporaryState() : arguments.state;
    options.seedFile = arguments.seed;
    options.uploadLifetimeSeconds = static_cast<double>(arguments.uploadTtl);
    options.uploadReserveBytes = arguments.uploadReserve;
    options.hubTiming.keepAliveSeconds = static_cast<double>(arguments.hubKeepAlive);
    options.hubTiming.connectionTimeoutSeconds = static_cast<double>(arguments.hubTimeout);
    std::error_code error;
    std::filesystem::create_directories(options.stateDir, error);
    int status = 1;
    {
        vh::emulator::VHEmulator emulator;
        if (!options.stateDir.empty() && emulator.start(options)) {
            std::printf("listening %s:%d\nca-file %s\n", options.listenHost.c_str(),
                        emulator.port(), emulator.caFile().c_str());
            std::fflush(stdout);
            int received = 0;
            sigwait(&signals, &received);
            status = 0;
        }
    }
    if (temporary && !options.stateDir.empty())
        std::filesystem::remove_all(options.stateDir, error);
    return status;
}
