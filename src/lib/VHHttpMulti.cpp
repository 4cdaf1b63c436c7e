#include <QSocketNotifier>
#include <QTimer>

#include "lib/VHHandOff.h"
#include "lib/VHHttp.h"
#include "lib/VHHttpTransport.h"

namespace vh {

using http_detail::VHHttpExchange;

struct VHHttpMulti::Transfer {
    TransferId id = 0;
    CURL* easy = nullptr;
    VHHttpExchange exchange;
    std::function<void(VHHttpResponse)> onFinished;
    bool cancelled = false;
    bool streaming = false;

    ~Transfer() {
        if (easy) curl_easy_cleanup(easy);
    }
};

VHHttpMulti::VHHttpMulti(QObject* parent) : QObject(parent) {
    http_detail::VHHttpGlobalInit();
    multi_ = curl_multi_init();
    timer_ = new QTimer(this);
    timer_->setSingleShot(true);
    connect(timer_, &QTimer::timeout, this, &VHHttpMulti::onTimeout);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &VHHttpMulti::socketCallback);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &VHHttpMulti::timerCallback);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

VHHttpMulti::~VHHttpMulti() {
    for (auto& [id, transfer] : transfers_) curl_multi_remove_handle(multi_, transfer->easy);
    transfers_.clear();
    for (auto& [fd, pair] : notifiers_) {
        delete pair.first;
        delete pair.second;
    }
    curl_multi_cleanup(multi_);
}

VHHttpMulti::TransferId VHHttpMulti::start(const VHHttpRequest& request, Handlers handlers) {
    auto transfer = std::make_unique<Transfer>();
    transfer->id = nextId_++;
    transfer->easy = curl_easy_init();
    transfer->exchange.request = request;
    transfer->exchange.onResponse = std::move(handlers.onResponse);
    transfer->exchange.onData = std::move(handlers.onData);
    transfer->streaming = static_cast<bool>(transfer->exchange.onData);
    transfer->onFinished = std::move(handlers.onFinished);
    http_detail::VHHttpConfigure(transfer->easy, transfer->exchange);
    TransferId id = transfer->id;
    CURL* easy = transfer->easy;
    transfers_.emplace(id, std::move(transfer));
    curl_multi_add_handle(multi_, easy);
    return id;
}

void VHHttpMulti::cancel(TransferId id) {
    auto it = transfers_.find(id);
    if (it == transfers_.end() || it->second->cancelled) return;
    Transfer* transfer = it->second.get();
    transfer->cancelled = true;
    transfer->exchange.onResponse = nullptr;
    // Removing a handle is not allowed inside libcurl's callbacks, which may be
    // on the stack now; a data callback of this transfer aborts it instead.
    transfer->exchange.onData = [](std::string_view) { return false; };
    QMetaObject::invokeMethod(this, VHHandOff([this, id] { removeTransfer(id); }),
                              Qt::QueuedConnection);
}

size_t VHHttpMulti::runningCount() const {
    size_t count = 0;
    for (const auto& [id, transfer] : transfers_) count += transfer->cancelled ? 0 : 1;
    return count;
}

void VHHttpMulti::removeTransfer(TransferId id) {
    auto it = transfers_.find(id);
    if (it == transfers_.end()) return;
    curl_multi_remove_handle(multi_, it->second->easy);
    transfers_.erase(it);
}

int VHHttpMulti::socketCallback(void*, int fd, int what, void* self, void*) {
    auto* multi = static_cast<VHHttpMulti*>(self);
    auto& [reader, writer] = multi->notifiers_[fd];
    auto retire = [](QObject*& notifier) {
        if (!notifier) return;
        // It may be the notifier whose signal is being handled right now.
        static_cast<QSocketNotifier*>(notifier)->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    };
    auto ensure = [multi, fd](QObject*& notifier, QSocketNotifier::Type type, int mask) {
        if (notifier) return;
        auto* n = new QSocketNotifier(fd, type, multi);
        QObject::connect(n, &QSocketNotifier::activated, multi,
                         [multi, fd, mask] { multi->onSocketActivity(fd, mask); });
        notifier = n;
    };
    if (what == CURL_POLL_REMOVE) {
        retire(reader);
        retire(writer);
        multi->notifiers_.erase(fd);
        return 0;
    }
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) {
        ensure(reader, QSocketNotifier::Read, CURL_CSELECT_IN);
    } else {
        retire(reader);
    }
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) {
        ensure(writer, QSocketNotifier::Write, CURL_CSELECT_OUT);
    } else {
        retire(writer);
    }
    return 0;
}

int VHHttpMulti::timerCallback(void*, long timeoutMs, void* self) {
    auto* multi = static_cast<VHHttpMulti*>(self);
    if (timeoutMs < 0) {
        multi->timer_->stop();
    } else {
        multi->timer_->start(static_cast<int>(timeoutMs));
    }
    return 0;
}

void VHHttpMulti::onSocketActivity(int fd, int eventMask) {
    int running = 0;
    curl_multi_socket_action(multi_, fd, eventMask, &running);
    readCompletions();
}

void VHHttpMulti::onTimeout() {
    int running = 0;
    curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    readCompletions();
}

void VHHttpMulti::readCompletions() {
    int pending = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &pending)) {
        if (message->msg != CURLMSG_DONE) continue;
        VHHttpExchange* exchange = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &exchange);
        for (auto& [id, transfer] : transfers_) {
            if (&transfer->exchange == exchange) {
                finish(transfer.get(), message->data.result);
                break;
            }
        }
    }
}

void VHHttpMulti::finish(Transfer* transfer, int curlCode) {
    TransferId id = transfer->id;
    bool silent = transfer->cancelled || transfer->exchange.aborted;
    VHHttpExchange& exchange = transfer->exchange;
    http_detail::VHHttpComplete(transfer->easy, exchange, static_cast<CURLcode>(curlCode));
    http_detail::VHHttpLogExchange(exchange, !transfer->streaming);
    if (!silent) {
        if (exchange.response.status > 0) exchange.announceResponse();
        auto onFinished = std::move(transfer->onFinished);
        VHHttpResponse response = std::move(exchange.response);
        removeTransfer(id);
        if (onFinished) onFinished(std::move(response));
        return;
    }
    removeTransfer(id);
}

}  // namespace vh
