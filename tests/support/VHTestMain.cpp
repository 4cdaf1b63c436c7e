// Test main: a QCoreApplication for tests that run an event loop, and a
// fresh HOME with XDG folders for every test.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <memory>

#include "lib/VHHttp.h"
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
    QCoreApplication app(argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new PrivateHomePerTest);
    int result = RUN_ALL_TESTS();
    vh::VHHttp::shutdown();
    return result;
}
