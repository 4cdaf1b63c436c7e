#include "service/VHFileCredentialStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "lib/VHLog.h"
#include "lib/VHPaths.h"
#include "store/VHMigration.h"

namespace fs = std::filesystem;

namespace vh {

namespace {

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

VHFileCredentialStore::VHFileCredentialStore()
    : VHFileCredentialStore(VHPaths::join(VHPaths::metadataDir(), kFileName)) {
    VHMigration::keepMetadataEntry(kFileName);
}

VHFileCredentialStore::VHFileCredentialStore(std::string path) : path_(std::move(path)) {}

std::vector<std::string> VHFileCredentialStore::accounts(const std::string& service) {
    std::vector<std::string> names;
    for (const Item& item : read()) {
        if (item.service == service) names.push_back(item.account);
    }
    return names;
}

std::optional<std::string> VHFileCredentialStore::password(const std::string& service,
                                                           const std::string& account) {
    for (const Item& item : read()) {
        if (item.service == service && item.account == account) return item.password;
    }
    return std::nullopt;
}

bool VHFileCredentialStore::setPassword(const std::string& service, const std::string& account,
                                        const std::string& password) {
    std::vector<Item> items = read();
    auto it = std::find_if(items.begin(), items.end(), [&](const Item& item) {
        return item.service == service && item.account == account;
    });
    if (it == items.end()) {
        items.push_back({service, account, password});
    } else {
        it->password = password;
    }
    return write(items);
}

bool VHFileCredentialStore::deletePassword(const std::string& service, const std::string& account) {
    std::vector<Item> items = read();
    auto kept = std::remove_if(items.begin(), items.end(), [&](const Item& item) {
        return item.service == service && item.account == account;
    });
    if (kept == items.end()) return true;
    items.erase(kept, items.end());
    return write(items);
}

std::vector<VHFileCredentialStore::Item> VHFileCredentialStore::read() const {
    std::ifstream in(path_, std::ios::binary);
    if (!in) return {};
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json json = nlohmann::json::parse(text.str(), nullptr, false);
    std::vector<Item> items;
    if (!json.is_array()) {
        VHLog(kLogMain, "Warning! The credentials file %@ cannot be read.", path_);
        return items;
    }
    for (const nlohmann::json& entry : json) {
        if (!entry.is_object()) continue;
        Item item{entry.value("service", ""), entry.value("account", ""),
                  entry.value("password", "")};
        if (!item.service.empty() && !item.account.empty()) items.push_back(std::move(item));
    }
    return items;
}

bool VHFileCredentialStore::write(const std::vector<Item>& items) const {
    nlohmann::json json = nlohmann::json::array();
    for (const Item& item : items) {
        json.push_back(
            {{"service", item.service}, {"account", item.account}, {"password", item.password}});
    }
    // The folder too: a listing of it would tell others whose secrets are kept.
    if (!VHPaths::makePrivateDir(fs::path(path_).parent_path().string())) {
        VHLog(kLogMain, "Warning! Cannot make the credentials folder of %@: %@", path_,
              std::strerror(errno));
        return false;
    }
    std::string temporary = path_ + ".new";
    ::unlink(temporary.c_str());
    // Created with the final mode, so the secret is never readable by others.
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    bool written = fd >= 0 && writeAll(fd, json.dump(1) + "\n") && ::fsync(fd) == 0;
    int error = errno;
    if (fd >= 0) ::close(fd);
    if (written && ::rename(temporary.c_str(), path_.c_str()) == 0) return true;
    error = written ? errno : error;
    ::unlink(temporary.c_str());
    VHLog(kLogMain, "Warning! Cannot write the credentials file %@: %@", path_,
          std::strerror(error));
    return false;
}

}  // namespace vh
