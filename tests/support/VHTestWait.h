// Waiting in tests: runs the calling thread's event loop until a condition
// holds or the time is up.
#pragma once

#include <QCoreApplication>
#include <QThread>
#include <chrono>
#include <functional>

namespace vh::test {

inline bool VHWaitUntil(const std::function<bool()>& condition,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    return true;
}

}  // namespace vh::test
