// Uploads in progress against the real emulator: chunks of one upload taken
// one at a time, and the life, expiry and disk reservation of uploads.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

std::string contentRange(uint64_t first, size_t length, uint64_t total) {
    return "bytes " + std::to_string(first) + "-" + std::to_string(first + length - 1) + "/" +
           std::to_string(total);
}

// Polls until `done` holds; false when it still does not after a minute.
bool eventually(const std::function<bool()>& done) {
    for (int i = 0; i < 6000; ++i) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// A chunk PUT that asks for "100 Continue", so that its body starts only
// once the emulator has taken up the request, then sends half of the body
// and holds the rest back until released.
class HeldChunk {
  public:
    HeldChunk(const VHEmulatorProcess& emulator, const std::string& url, std::string data,
              uint64_t first, uint64_t total)
        : data_(std::move(data)) {
        std::string path = url.substr(url.find("/api/"));
        std::string range = "Content-Range: " + contentRange(first, data_.size(), total);
        thread_ = std::thread([this, &emulator, path, range] { run(emulator, path, range); });
    }
    ~HeldChunk() {
        release();
        if (thread_.joinable()) thread_.join();
    }

    // Waits until the emulator asked for the body.
    bool sending() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::minutes(1), [this] { return sent_ > 0; });
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }
    VHEmulatorReply finish() {
        release();
        thread_.join();
        return reply_;
    }

  private:
    void run(const VHEmulatorProcess& emulator, const std::string& path, const std::string& range) {
        CURL* curl = curl_easy_init();
        std::string url = "https://" + std::string(kFilecache1) + path;
        std::string connectTo = "::" + emulator.connectTo();
        curl_slist* connect = curl_slist_append(nullptr, connectTo.c_str());
        curl_slist* headers = curl_slist_append(nullptr, range.c_str());
        headers = curl_slist_append(headers, "Expect: 100-continue");
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_CONNECT_TO, connect);
        curl_easy_setopt(curl, CURLOPT_CAINFO, emulator.caFile().c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(data_.size()));
        curl_easy_setopt(curl, CURLOPT_EXPECT_100_TIMEOUT_MS, 600000L);
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, &HeldChunk::read);
        curl_easy_setopt(curl, CURLOPT_READDATA, this);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &HeldChunk::write);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply_.body);
        reply_.curlCode = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply_.status);
        curl_slist_free_all(headers);
        curl_slist_free_all(connect);
        curl_easy_cleanup(curl);
    }

    static size_t read(char* buffer, size_t size, size_t count, void* self) {
        auto* chunk = static_cast<HeldChunk*>(self);
        std::unique_lock lock(chunk->mutex_);
        size_t half = chunk->data_.size() / 2;
        if (chunk->sent_ >= half) {
            chunk->changed_.wait(lock, [chunk] { return chunk->released_; });
        }
        size_t end = chunk->released_ ? chunk->data_.size() : half;
        size_t take = std::min(size * count, end - chunk->sent_);
        std::copy_n(chunk->data_.data() + chunk->sent_, take, buffer);
        chunk->sent_ += take;
        chunk->changed_.notify_all();
        return take;
    }

    static size_t write(char* data, size_t size, size_t count, void* body) {
        static_cast<std::string*>(body)->append(data, size * count);
        return size * count;
    }

    std::string data_;
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t sent_ = 0;
    bool released_ = false;
    VHEmulatorReply reply_;
    std::thread thread_;
};

class EmulatorUploads : public testing::Test {
  protected:
    void SetUp() override { start({}); }

    void start(const std::vector<std::string>& arguments) {
        VHEmulatorProcess::Options options{VHCompactSeed(), ""};
        options.arguments = arguments;
        ASSERT_TRUE(emulator.start(options));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.domainToken.empty());
    }

    // The upload URL of a new file in "team" (or new contents of `id`).
    std::string uploadUrl(const std::string& name, uint64_t size, const std::string& id = "") {
        json item = {{"ParrentId", "team"},
                     {"PublicName", name},
                     {"IsFile", true},
                     {"EndOfFile", size},
                     {"InternalName", id.empty() ? VHTestInternalName() : id}};
        VHEmulatorReply reply = VHSendEvent(emulator, alice, "team", 0, item);
        EXPECT_EQ(reply.status, 201) << reply.body;
        return reply.json()["Data"].value("Url", "");
    }

    VHEmulatorReply put(const std::string& url, const std::string& data, uint64_t first,
                        uint64_t total) {
        return emulator.request("PUT", kFilecache1, url.substr(url.find("/api/")),
                                {{"Content-Range", contentRange(first, data.size(), total)}}, data);
    }

    // The emulator's count of uploads in progress and of their chunks.
    json uploads() {
        auto state = emulator.state();
        return state && state->contains("uploads") ? (*state)["uploads"] : json::object();
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorUploads, PutsOfOneChunkAreTakenOneAtATime) {
    const size_t chunk = 256 * 1024;
    std::string data = VHTestBytes(2 * chunk);
    std::string url = uploadUrl("two-chunks.bin", data.size());
    ASSERT_FALSE(url.empty());
    // A slow first request and the client's resend of the same chunk.
    HeldChunk first(emulator, url, data.substr(0, chunk), 0, data.size());
    ASSERT_TRUE(first.sending());
    std::atomic<bool> resent{false};
    VHEmulatorReply again;
    std::thread resend([&] {
        again = put(url, data.substr(0, chunk), 0, data.size());
        resent = true;
    });
    EXPECT_TRUE(eventually([&] { return resent || uploads().value("waiting", 0) == 1; }));
    VHEmulatorReply held = first.finish();
    resend.join();

    int taken = 0;
    for (const VHEmulatorReply* reply : {&held, &again}) {
        if (reply->status == 202) {
            ++taken;
            continue;
        }
        EXPECT_EQ(reply->status, 400) << reply->body;
        EXPECT_EQ(reply->json()["Code"], 16);
        EXPECT_EQ(reply->json()["Data"]["CurrentPosition"], chunk);
    }
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(put(url, data.substr(chunk), chunk, data.size()).status, 200);
    EXPECT_EQ(emulator.fileBytes("team", "/two-chunks.bin"), data);
}

TEST_F(EmulatorUploads, UploadsStartedAgainOrFinishedGiveBackTheirSpace) {
    const size_t size = 1 << 20;
    std::string id = VHTestInternalName();
    std::string first = uploadUrl("again.bin", size, id);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(uploads()["reservedBytes"], size);
    // After a refused chunk the client starts over with a new event.
    std::string second = uploadUrl("again.bin", size, id);
    ASSERT_FALSE(second.empty());
    VHEmulatorReply stale = put(first, std::string(10, 'x'), 0, size);
    EXPECT_EQ(stale.status, 404);
    EXPECT_EQ(stale.json()["Code"], 5);
    EXPECT_EQ(uploads()["inProgress"], 1);
    EXPECT_EQ(uploads()["reservedBytes"], size);
    // Another device's upload of the same file is left alone.
    json other = {{"InternalName", id},
                  {"ParrentId", "team"},
                  {"PublicName", "again.bin"},
                  {"IsFile", true},
                  {"EndOfFile", size}};
    json event = VHJournalEvent(0, other);
    event["DeviceId"] = "other-device";
    VHEmulatorReply parallel = emulator.request("POST", kFilecache1, "/api/shares/team/files",
                                                VHAuthorization(alice.domainToken), event.dump());
    ASSERT_EQ(parallel.status, 201);
    EXPECT_EQ(uploads()["inProgress"], 2);

    std::string data = VHTestBytes(size);
    EXPECT_EQ(put(second, data, 0, size).status, 200);
    EXPECT_EQ(emulator.fileBytes("team", "/again.bin"), data);
    EXPECT_EQ(uploads()["inProgress"], 1);
    EXPECT_EQ(uploads()["reservedBytes"], size);
}

TEST_F(EmulatorUploads, ReservedSpaceIsBoundedAndUploadsStillComplete) {
    start({"--upload-reserve", "1500000"});
    const size_t size = 1 << 20;
    std::string first = uploadUrl("first.bin", size);
    std::string second = uploadUrl("second.bin", size);
    ASSERT_FALSE(first.empty());
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(uploads()["inProgress"], 2);
    EXPECT_EQ(uploads()["reservedBytes"], size);
    std::string one = VHTestBytes(size, 1), two = VHTestBytes(size, 2);
    EXPECT_EQ(put(second, two, 0, size).status, 200);
    EXPECT_EQ(put(first, one, 0, size).status, 200);
    EXPECT_EQ(emulator.fileBytes("team", "/first.bin"), one);
    EXPECT_EQ(emulator.fileBytes("team", "/second.bin"), two);
    EXPECT_EQ(uploads()["reservedBytes"], 0);
}

TEST_F(EmulatorUploads, ExpiredUploadsAreGoneWithTheirSpace) {
    start({"--upload-ttl", "0"});
    auto blobs = [&] {
        auto entries = std::filesystem::directory_iterator(emulator.stateDir() + "/blobs");
        return std::distance(begin(entries), end(entries));
    };
    auto before = blobs();
    std::string url = uploadUrl("late.bin", 1 << 20);
    ASSERT_FALSE(url.empty());
    VHEmulatorReply late = put(url, std::string(10, 'x'), 0, 1 << 20);
    EXPECT_EQ(late.status, 404);
    EXPECT_EQ(late.json()["Code"], 5);
    EXPECT_EQ(uploads()["inProgress"], 0);
    EXPECT_EQ(uploads()["reservedBytes"], 0);
    EXPECT_EQ(blobs(), before);
    EXPECT_TRUE(VHInternalName(emulator, "team", "/late.bin").empty());
}

}  // namespace
}  // namespace vh::test
