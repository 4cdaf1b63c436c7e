// Ranged GET and chunk PUT throughput of the emulator with 16 connections
// at once on loopback, against plain loopback TCP moving the same bytes.
// Every measured run follows an unmeasured one of the same kind.
//
// usage: vh_emulator_bench [MiB per connection, default 64]
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "emulator/support/VHEmulatorProcess.h"

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr int kConnections = 16;
constexpr size_t kRange = 1u << 20;  // a download read beyond the cached prefix
constexpr size_t kChunk = 2u << 20;  // the upload's largest chunk
const char* kFilecache = "filecache01.bench.varnholt.test";

struct Connection {
    CURL* curl = curl_easy_init();
    curl_slist* connectTo = nullptr;
    ~Connection() {
        curl_easy_cleanup(curl);
        curl_slist_free_all(connectTo);
    }
};

size_t countBytes(char*, size_t size, size_t count, void* total) {
    *static_cast<uint64_t*>(total) += size * count;
    return size * count;
}

size_t keepBody(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

void prepare(Connection& connection, const vh::test::VHEmulatorProcess& emulator) {
    connection.connectTo = curl_slist_append(nullptr, ("::" + emulator.connectTo()).c_str());
    curl_easy_setopt(connection.curl, CURLOPT_CONNECT_TO, connection.connectTo);
    curl_easy_setopt(connection.curl, CURLOPT_CAINFO, emulator.caFile().c_str());
}

// Runs `work` on kConnections threads at once; the seconds it took.
double timed(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    auto started = Clock::now();
    for (int i = 0; i < kConnections; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    return std::chrono::duration<double>(Clock::now() - started).count();
}

bool rangedGets(const vh::test::VHEmulatorProcess& emulator, const std::string& path,
                const std::string& token, uint64_t fileSize, int rounds, uint64_t& moved) {
    std::atomic<uint64_t> total{0};
    std::atomic<bool> failed{false};
    timed([&](int index) {
        Connection connection;
        prepare(connection, emulator);
        std::string url = std::string("https://") + kFilecache + path;
        std::string auth = "Authorization: DomainToken " + token;
        for (int round = 0; round < rounds && !failed; ++round) {
            uint64_t first = ((index * 7 + round) * kRange) % (fileSize - kRange + 1);
            std::string range = "Content-Range: bytes " + std::to_string(first) + "-" +
                                std::to_string(first + kRange) + "/" + std::to_string(fileSize);
            curl_slist* headers =
                curl_slist_append(curl_slist_append(nullptr, auth.c_str()), range.c_str());
            uint64_t received = 0;
            curl_easy_setopt(connection.curl, CURLOPT_URL, url.c_str());
            curl_easy_setopt(connection.curl, CURLOPT_HTTPHEADER, headers);
            curl_easy_setopt(connection.curl, CURLOPT_WRITEFUNCTION, countBytes);
            curl_easy_setopt(connection.curl, CURLOPT_WRITEDATA, &received);
            if (curl_easy_perform(connection.curl) != CURLE_OK || received != kRange) failed = true;
            total += received;
            curl_slist_free_all(headers);
        }
    });
    moved = total;
    return !failed;
}

std::string uploadPath(int round, int index) {
    return "/upload" + std::to_string(round) + "-" + std::to_string(index) + ".bin";
}

// The upload URL of a new file of `size` bytes.
std::string startUpload(const vh::test::VHEmulatorProcess& emulator, const std::string& token,
                        int round, int index, uint64_t size) {
    json file = {{"InternalName", "file" + std::to_string(round) + "x" + std::to_string(index)},
                 {"ParrentId", "bench"},
                 {"PublicName", uploadPath(round, index).substr(1)},
                 {"IsFile", true},
                 {"EndOfFile", size}};
    json event = {{"TransmitId", "bench" + std::to_string(index)},
                  {"ClientJournalEventType", 0},
                  {"VhVirtualFile", file},
                  {"DeviceId", "bench"}};
    auto reply = emulator.request(
        "POST", kFilecache, "/api/shares/bench/files",
        {{"Authorization", "DomainToken " + token}, {"Content-Type", "application/json"}},
        event.dump());
    return reply.status == 201 ? reply.json()["Data"].value("Url", "") : "";
}

bool chunkPuts(const vh::test::VHEmulatorProcess& emulator, const std::vector<std::string>& urls,
               uint64_t size, double& seconds) {
    std::string chunk(kChunk, 'x');
    for (size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i * 131 % 251);
    std::atomic<bool> failed{false};
    seconds = timed([&](int index) {
        Connection connection;
        prepare(connection, emulator);
        std::string answer;
        for (uint64_t first = 0; first < size && !failed; first += kChunk) {
            std::string range = "Content-Range: bytes " + std::to_string(first) + "-" +
                                std::to_string(first + kChunk - 1) + "/" + std::to_string(size);
            curl_slist* headers =
                curl_slist_append(curl_slist_append(nullptr, "Expect:"), range.c_str());
            answer.clear();
            curl_easy_setopt(connection.curl, CURLOPT_URL, urls[index].c_str());
            curl_easy_setopt(connection.curl, CURLOPT_CUSTOMREQUEST, "PUT");
            curl_easy_setopt(connection.curl, CURLOPT_POSTFIELDS, chunk.data());
            curl_easy_setopt(connection.curl, CURLOPT_POSTFIELDSIZE_LARGE,
                             static_cast<curl_off_t>(chunk.size()));
            curl_easy_setopt(connection.curl, CURLOPT_HTTPHEADER, headers);
            curl_easy_setopt(connection.curl, CURLOPT_WRITEFUNCTION, keepBody);
            curl_easy_setopt(connection.curl, CURLOPT_WRITEDATA, &answer);
            long status = 0;
            if (curl_easy_perform(connection.curl) != CURLE_OK) failed = true;
            curl_easy_getinfo(connection.curl, CURLINFO_RESPONSE_CODE, &status);
            bool last = first + kChunk >= size;
            if (status != (last ? 200 : 202)) failed = true;
            curl_slist_free_all(headers);
        }
    });
    return !failed;
}

// The same number of bytes over plain loopback TCP, kConnections at once.
double plainTcp(uint64_t bytesPerConnection) {
    int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener, kConnections);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::thread acceptor([&] {
        std::vector<std::thread> readers;
        for (int i = 0; i < kConnections; ++i) {
            int peer = ::accept(listener, nullptr, nullptr);
            readers.emplace_back([peer] {
                std::vector<char> buffer(kChunk);
                while (::read(peer, buffer.data(), buffer.size()) > 0) {
                }
                ::close(peer);
            });
        }
        for (std::thread& reader : readers) reader.join();
    });
    double seconds = timed([&](int) {
        int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
        std::vector<char> buffer(kChunk, 'x');
        for (uint64_t sent = 0; sent < bytesPerConnection;) {
            ssize_t n = ::write(socket, buffer.data(),
                                std::min<uint64_t>(buffer.size(), bytesPerConnection - sent));
            if (n <= 0) break;
            sent += static_cast<uint64_t>(n);
        }
        ::close(socket);
    });
    acceptor.join();
    ::close(listener);
    return seconds;
}

json benchSeed(uint64_t fileSize) {
    return {{"domains", {{{"url", "bench.varnholt.test"}}}},
            {"users",
             {{{"email", "bench@varnholt.test"},
               {"password", "bench"},
               {"primaryDomain", "bench.varnholt.test"}}}},
            {"shares",
             {{{"shareId", "bench"},
               {"name", "Bench"},
               {"domain", "bench.varnholt.test"},
               {"owner", "bench@varnholt.test"},
               {"actions",
                {{{"action", "writeFile"},
                  {"path", "/source.bin"},
                  {"size", fileSize},
                  {"seed", 1}}}}}}}};
}

// One round of kConnections uploads of `size` bytes each; the seconds it took, or a negative
// number when it failed.
double putRound(const vh::test::VHEmulatorProcess& emulator, const std::string& token, int round,
                uint64_t size) {
    std::vector<std::string> urls;
    for (int i = 0; i < kConnections; ++i)
        urls.push_back(startUpload(emulator, token, round, i, size));
    double seconds = 0;
    if (std::find(urls.begin(), urls.end(), "") != urls.end() ||
        !chunkPuts(emulator, urls, size, seconds)) {
        return -1;
    }
    return seconds;
}

double megabytesPerSecond(uint64_t bytes, double seconds) {
    return bytes / seconds / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    uint64_t perConnection = (argc > 1 ? std::stoull(argv[1]) : 64) << 20;
    uint64_t fileSize = 64u << 20;
    curl_global_init(CURL_GLOBAL_ALL);
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start({benchSeed(fileSize), ""})) return 1;
    std::string token = (*emulator.account("bench@varnholt.test"))["domains"][0]["token"];
    json tree = *emulator.tree("bench");
    std::string uploadName = tree["items"][0]["uploadName"];

    // Each phase runs twice and the second run counts: the first one pays for
    // memory the machine touches for the first time.
    uint64_t moved = 0;
    int rounds = static_cast<int>(perConnection / kRange);
    std::string path = "/api/shares/bench/files/" + uploadName;
    rangedGets(emulator, path, token, fileSize, rounds, moved);
    auto started = Clock::now();
    bool getOk = rangedGets(emulator, path, token, fileSize, rounds, moved);
    double getSeconds = std::chrono::duration<double>(Clock::now() - started).count();

    bool putOk = putRound(emulator, token, 0, perConnection) > 0;
    json removals = json::array();
    for (int i = 0; i < kConnections; ++i) {
        removals.push_back({{"action", "delete"}, {"path", uploadPath(0, i)}});
    }
    putOk = putOk && emulator.act("bench", removals);
    double putSeconds = putRound(emulator, token, 1, perConnection);
    putOk = putOk && putSeconds > 0;
    plainTcp(perConnection);
    double tcpSeconds = plainTcp(perConnection);

    uint64_t total = perConnection * kConnections;
    double get = megabytesPerSecond(moved, getSeconds);
    double put = megabytesPerSecond(total, putSeconds);
    double tcp = megabytesPerSecond(total, tcpSeconds);
    std::printf("connections: %d, bytes per run: %llu MiB\n", kConnections,
                static_cast<unsigned long long>(total >> 20));
    std::printf("ranged GET (1 MiB ranges): %8.1f MB/s%s\n", get, getOk ? "" : "  (FAILED)");
    std::printf("chunk PUT  (2 MiB chunks): %8.1f MB/s%s\n", put, putOk ? "" : "  (FAILED)");
    std::printf("reference plain loopback TCP: %8.1f MB/s\n", tcp);
    std::printf("ratio GET/TCP: %.3f, PUT/TCP: %.3f\n", get / tcp, put / tcp);
    std::printf("target 500 MB/s: GET %s, PUT %s\n", get >= 500 ? "met" : "NOT met",
                put >= 500 ? "met" : "NOT met");
    curl_global_cleanup();
    return getOk && putOk ? 0 : 1;
}
