// The file-manager socket as plug-ins and strangers meet it: real Unix
// sockets against the connector running on this thread's event loop.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QLocalSocket>
#include <string>

#include "desktop/VHFinderConnector.h"
#include "drive/VHFuseUtils.h"
#include "support/VHTestWait.h"

namespace vh::test {
namespace {

TEST(FinderMessage, SplitsAtTheFirstTwoColonsAndTrimsTheParameter) {
    auto full = VHFinderMessage::parse("abc:badge: /home/u/Varnholt/a:b.txt \n");
    ASSERT_TRUE(full);
    EXPECT_EQ(full->instanceId, "abc");
    EXPECT_EQ(full->messageType, "badge");
    EXPECT_EQ(full->parameter, "/home/u/Varnholt/a:b.txt");
    auto bare = VHFinderMessage::parse("abc:hello");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->messageType, "hello");
    EXPECT_EQ(bare->parameter, "");
    EXPECT_FALSE(VHFinderMessage::parse("no colon at all"));
}

class FinderConnectorTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(VHFinderConnector::defaultConnector().start()); }
    void TearDown() override { VHFinderConnector::defaultConnector().stop(); }

    std::unique_ptr<QLocalSocket> connectPlugin() {
        auto socket = std::make_unique<QLocalSocket>();
        socket->connectToServer(QString::fromStdString(VHFinderConnector::socketPath()));
        EXPECT_TRUE(VHWaitUntil([&] { return socket->state() == QLocalSocket::ConnectedState; }));
        return socket;
    }
    static void say(QLocalSocket& socket, const std::string& line) {
        socket.write(line.data(), static_cast<qint64>(line.size()));
        socket.flush();
    }
    static std::string nextLine(QLocalSocket& socket) {
        if (!VHWaitUntil([&] { return socket.canReadLine(); })) return "";
        return socket.readLine().trimmed().toStdString();
    }
    static bool dropped(QLocalSocket& socket) {
        return VHWaitUntil([&] { return socket.state() == QLocalSocket::UnconnectedState; });
    }
};

TEST_F(FinderConnectorTest, PluginsAreGreetedAndMisbehavingPeersAreDropped) {
    VHFuseUtils::setMountPath("/home/tester/Varnholt");
    auto first = connectPlugin();
    auto second = connectPlugin();
    say(*first, "one:hello:\n");
    say(*second, "two:hello\n");
    for (QLocalSocket* plugin : {first.get(), second.get()}) {
        EXPECT_EQ(nextLine(*plugin), "hej:/home/tester/Varnholt");
        EXPECT_EQ(nextLine(*plugin), "lang:en");
    }
    auto& connector = VHFinderConnector::defaultConnector();
    EXPECT_TRUE(connector.connectionWithId("one"));
    EXPECT_TRUE(connector.connectionWithId("two"));

    // Garbage, bytes that are not text and unknown commands are ignored.
    say(*first, "garbage without a colon\n\xff\xfe:hello:\none:frobnicate:/x\n");
    // A line that never ends drops its peer alone.
    say(*second, std::string(VHFinderConnector::kMaxLineBytes + 10, 'x'));
    EXPECT_TRUE(dropped(*second));
    EXPECT_TRUE(VHWaitUntil([&] { return !connector.connectionWithId("two"); }));
    say(*first, "one:hello\n");
    EXPECT_EQ(nextLine(*first), "hej:/home/tester/Varnholt");

    // A control command that is not known is answered, not dropped.
    auto control = connectPlugin();
    say(*control, "ctl-1:ctl-frobnicate:\n");
    EXPECT_EQ(nextLine(*control), "error:unknown command ctl-frobnicate");
}

TEST_F(FinderConnectorTest, OtherUsersCannotConnect) {
    if (getuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    std::string path = VHFinderConnector::socketPath();
    // Open every folder on the way and the socket itself, as a careless
    // setup would: the peer check alone must refuse.
    for (std::string folder = path; folder.size() > 1;) {
        chmod(folder.c_str(), folder == path ? 0777 : 0755);
        folder = folder.substr(0, folder.rfind('/'));
        if (folder == "/tmp" || folder.empty()) break;
    }
    pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) _exit(3);
        const char hello[] = "intruder:hello:\n";
        (void)!write(fd, hello, sizeof hello - 1);
        char reply[64];
        _exit(read(fd, reply, sizeof reply) > 0 ? 1 : 0);
    }
    int status = 0;
    ASSERT_TRUE(VHWaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }));
    // 3: no connection at all (the open folders did not let it in); 1: answered.
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_FALSE(VHFinderConnector::defaultConnector().connectionWithId("intruder"));
}

}  // namespace
}  // namespace vh::test
