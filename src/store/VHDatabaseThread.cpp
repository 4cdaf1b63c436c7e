#include "store/VHDatabaseThread.h"

#include "lib/VHHandOff.h"

namespace vh {

VHDatabaseThread::VHDatabaseThread() : context_(new QObject) {
    thread_.setObjectName("database");
    context_->moveToThread(&thread_);
    QObject::connect(&thread_, &QThread::finished, context_, &QObject::deleteLater);
    VHStartThread(thread_);
}

VHDatabaseThread::~VHDatabaseThread() {
    thread_.quit();
    VHWaitForThread(thread_);
}

void VHDatabaseThread::runBlocking(const std::function<void()>& fn) {
    if (isCurrent()) {
        fn();
        return;
    }
    VHHandOffBlocking(fn, [this](const std::function<void()>& job) {
        QMetaObject::invokeMethod(context_, job, Qt::BlockingQueuedConnection);
    });
}

void VHDatabaseThread::post(std::function<void()> fn) {
    QMetaObject::invokeMethod(context_, VHHandOff(std::move(fn)), Qt::QueuedConnection);
}

}  // namespace vh
