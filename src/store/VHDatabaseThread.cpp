#include "store/VHDatabaseThread.h"

namespace vh {

VHDatabaseThread::VHDatabaseThread() : context_(new QObject) {
    thread_.setObjectName("database");
    context_->moveToThread(&thread_);
    QObject::connect(&thread_, &QThread::finished, context_, &QObject::deleteLater);
    thread_.start();
}

VHDatabaseThread::~VHDatabaseThread() {
    thread_.quit();
    thread_.wait();
}

void VHDatabaseThread::runBlocking(const std::function<void()>& fn) {
    if (isCurrent()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(context_, fn, Qt::BlockingQueuedConnection);
}

void VHDatabaseThread::post(std::function<void()> fn) {
    QMetaObject::invokeMethod(context_, std::move(fn), Qt::QueuedConnection);
}

}  // namespace vh
