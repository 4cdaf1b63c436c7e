// The application's answer to a fatal failure of a lower layer, which may
// come from any thread.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <thread>

#include "desktop/VHApplicationDelegate.h"
#include "lib/VHFatalError.h"

namespace vh::test {
namespace {

TEST(ApplicationDelegate, AFatalFailureOnAnotherThreadEndsTheMainLoopWithItsStatus) {
    VHApplicationDelegate& delegate = VHApplicationDelegate::delegate();
    delegate.applicationWillFinishLaunching();
    ASSERT_EQ(delegate.fatalStatus(), 0);
    // The reporting thread goes on: the process is ended from the main thread.
    std::thread([] { VHReportFatalError(kExitDatabaseFailure); }).join();
    EXPECT_EQ(delegate.fatalStatus(), kExitDatabaseFailure);
    EXPECT_EQ(QCoreApplication::exec(), kExitDatabaseFailure);
}

}  // namespace
}  // namespace vh::test
