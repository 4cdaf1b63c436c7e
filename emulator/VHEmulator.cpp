#include "VHEmulator.h"

#include <fstream>
#include <sstream>

#include "VHAdminContentService.h"
#include "VHAdminDiagnosticsService.h"
#include "VHAdminHubService.h"
#include "VHAdminService.h"
#include "VHCatchUpService.h"
#include "VHEmulatorSeed.h"
#include "VHEmulatorText.h"
#include "VHFileApiService.h"
#include "VHHubService.h"
#include "VHLinkService.h"
#include "VHLoginService.h"
#include "VHTransferService.h"

namespace vh::emulator {

namespace {

std::optional<nlohmann::json> readJsonFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    auto json = nlohmann::json::parse(text.str(), nullptr, false);
    if (json.is_discarded()) return std::nullopt;
    return json;
}

template <typename Service, typename... Args>
std::shared_ptr<void> makeService(VHEmulatorServer& server, Args&&... args) {
    auto service = std::make_shared<Service>(std::forward<Args>(args)...);
    service->registerRoutes(server);
    return service;
}

}  // namespace

VHEmulator::VHEmulator() = default;

VHEmulator::~VHEmulator() {
    stop();
}

bool VHEmulator::seed(const std::string& seedFile) {
    {
        auto guard = store_.db.lock();
        if (store_.db.meta("seeded")) return true;
    }
    auto document = seedFile.empty() ? std::optional(VHDemoSeed()) : readJsonFile(seedFile);
    if (!document) {
        VHEmulatorLog("cannot read the seed file " + seedFile);
        return false;
    }
    std::string error;
    if (!VHLoadSeed(store_, *document, error)) {
        VHEmulatorLog("the seed was refused: " + error);
        return false;
    }
    return true;
}

void VHEmulator::registerServices(const VHHubTiming& hubTiming) {
    VHEmulatorServer& server = *server_;
    hub_ = std::make_unique<VHHubConnections>(hubTiming);
    {
        auto guard = store_.db.lock();
        store_.events.setListener([hub = hub_.get()] { hub->changed(); });
    }
    services_.push_back(makeService<VHHubService>(server, store_, *hub_));
    services_.push_back(makeService<VHAdminHubService>(server, store_, *hub_));
    services_.push_back(makeService<VHLoginService>(server, store_));
    services_.push_back(makeService<VHCatchUpService>(server, store_));
    services_.push_back(makeService<VHFileApiService>(server, store_));
    services_.push_back(makeService<VHTransferService>(server, store_));
    services_.push_back(makeService<VHLinkService>(server, store_));
    services_.push_back(makeService<VHAdminContentService>(server, store_));
    services_.push_back(makeService<VHAdminDiagnosticsService>(server, faults_, log_));
    services_.push_back(makeService<VHAdminService>(server, store_, [this] {
        std::vector<std::string> names;
        {
            auto guard = store_.db.lock();
            names = store_.hostNames();
        }
        return tls_.reissue(names);
    }));
}

bool VHEmulator::start(const Options& options) {
    if (!store_.open(options.stateDir) || !seed(options.seedFile)) return false;
    std::vector<std::string> names;
    std::string globalHost;
    {
        auto guard = store_.db.lock();
        store_.uploads.configure(options.uploadLifetimeSeconds, options.uploadReserveBytes);
        if (!store_.expireUploads()) return false;
        names = store_.hostNames();
        globalHost = store_.globalHost();
    }
    if (!tls_.setUp(options.stateDir + "/tls", names)) return false;
    server_ = std::make_unique<VHEmulatorServer>(tls_, faults_, log_, globalHost);
    registerServices(options.hubTiming);
    port_ = server_->bind(options.listenHost, options.port);
    if (port_ <= 0) {
        VHEmulatorLog("cannot listen on " + options.listenHost + ":" +
                      std::to_string(options.port));
        return false;
    }
    thread_ = std::thread([this] { server_->run(); });
    return true;
}

void VHEmulator::stop() {
    // Held polls answer first, or the server would wait for them.
    if (hub_) hub_->stop();
    if (server_) server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace vh::emulator
