#include "support/VHTestDrive.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "drive/VHDriveEvents.h"
#include "drive/VHFuseMount.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"
#include "support/VHTestWait.h"

namespace vh::test {

VHTestDrive::VHTestDrive(std::string mountPath, std::string options)
    : mountPath_(std::move(mountPath)), options_(std::move(options)) {
    auto connection = QObject::connect(&VHDriveEvents::instance(), &VHDriveEvents::fuseDidMount,
                                       [this] { mounted_ = true; });
    thread_ = std::thread([this] {
        std::vector<std::string> args = {"varnholt", mountPath_, "-f", "-o", options_};
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        result_ = mount_varnholt(static_cast<int>(argv.size()), argv.data());
        ended_ = true;
    });
    bool ok = VHWaitUntil([this] { return mounted_ || ended_; }, std::chrono::seconds(15));
    QObject::disconnect(connection);
    if (!ok || !mounted_) {
        if (thread_.joinable()) thread_.detach();
        throw std::runtime_error("the drive did not mount, code " + std::to_string(result_));
    }
}

VHTestDrive::~VHTestDrive() {
    unmount();
}

bool VHTestDrive::unmount() {
    if (!thread_.joinable()) return ended_;
    if (!ended_ && VHUnmountDrive(mountPath_, false) != 0) VHUnmountDrive(mountPath_, true);
    thread_.join();
    mounted_ = false;
    return ended_;
}

std::string VHRun(const std::string& command, bool withErrors) {
    std::string full = command + (withErrors ? " 2>&1" : " 2>/dev/null");
    FILE* pipe = popen(full.c_str(), "r");
    if (!pipe) return "";
    std::string output;
    char buffer[4096];
    while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
    pclose(pipe);
    return output;
}

VHVirtualFile VHTestItem(const std::string& shareId, const std::string& id,
                         const std::string& parentId, const std::string& name,
                         std::optional<uint64_t> size, uint64_t tick) {
    VHVirtualFile item;
    item.ShareId = shareId;
    item.InternalName = id;
    item.ParrentId = parentId;
    item.PublicName = name;
    item.UploadName = "U" + id;
    item.IsFile = size.has_value();
    item.EndOfFile = size.value_or(0);
    item.Tick = item.ShareTick = item.UpdateTick = item.CreateTick = tick;
    item.CreationTime = VHDate{1700000000.0 + static_cast<double>(tick)};
    item.LastAccessTime = VHDate{1700000100.5};
    item.LastWriteTime = VHDate{1700000200.0 + static_cast<double>(tick)};
    return item;
}

void VHLoadStoreWithShares(const std::string& clientLoginJson) {
    VHDatabase& db = VHDatabase::database();
    db.load();
    std::string error;
    auto response = VHParseRecord<ClientLoginResponse>(clientLoginJson, &error);
    if (!response) throw std::runtime_error("bad test login answer: " + error);
    auto domain = VHParseRecord<UserDomain>(
        R"({"Domain":{"DomainId":"dom1","Url":"d1.varnholt.test"},"UserDomainToken":"t"})");
    db.updateShares(*response, *domain);
}

void VHApplyItems(const std::string& shareId, const std::vector<VHVirtualFile>& items) {
    VHDatabase& db = VHDatabase::database();
    auto share = db.shareWithId(shareId);
    if (!share) throw std::runtime_error("unknown test share " + shareId);
    OSXCatchUpResponse page;
    page.VhVirtualFiles = items;
    page.LargestTick = static_cast<int64_t>(items.empty() ? 0 : items.back().Tick);
    page.ShareTick = page.LargestTick;
    db.updateFiles(page, *share);
}

}  // namespace vh::test
