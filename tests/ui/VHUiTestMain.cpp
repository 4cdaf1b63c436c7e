// Test main of the window tests: a private Xvfb display, a QApplication on
// it, and a fresh HOME with XDG folders for every test. Without Xvfb the
// tests skip (VHUiSkipReason) and the application runs offscreen.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "VHUiTestSupport.h"
#include "support/VHTestHome.h"

namespace {

class PrivateHomePerTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        home_ = std::make_unique<vh::test::VHTestHome>();
    }
    void OnTestEnd(const testing::TestInfo&) override { home_.reset(); }
    std::unique_ptr<vh::test::VHTestHome> home_;
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    setenv("LANGUAGE", "en", 1);
    vh::test::VHUseDisplay(!GTEST_FLAG_GET(list_tests));
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    testing::UnitTest::GetInstance()->listeners().Append(new PrivateHomePerTest);
    int result = RUN_ALL_TESTS();
    // The client's threads (drive, queues, realtime) still run: exit handlers
    // would tear libraries down under them.
    std::fflush(nullptr);
    _exit(result);
}
