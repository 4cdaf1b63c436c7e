#include "service/VHKeychainCredentialStore.h"

#include <qt6keychain/keychain.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <memory>

#include "lib/VHLog.h"
#include "lib/VHStrings.h"

namespace vh {

namespace {

constexpr int kJobTimeoutMs = 10000;
// A Secret Service that exists answers a read at once; one that does not
// may leave D-Bus waiting for its own time-out.
constexpr int kProbeTimeoutMs = 3000;

struct JobResult {
    bool finished = false;
    QKeychain::Error error = QKeychain::OtherError;
    QString errorText;
    QByteArray data;
};

// Runs `job` (which deletes itself when done) and waits for it in a local
// event loop. A job that outlives the time-out finishes unobserved.
JobResult run(QKeychain::Job* job, int timeoutMs) {
    auto result = std::make_shared<JobResult>();
    QEventLoop loop;
    QPointer<QEventLoop> waiting(&loop);
    job->setAutoDelete(true);
    job->setInsecureFallback(false);
    QObject::connect(job, &QKeychain::Job::finished, job, [result, waiting](QKeychain::Job* done) {
        result->finished = true;
        result->error = done->error();
        result->errorText = done->errorString();
        if (auto* reading = qobject_cast<QKeychain::ReadPasswordJob*>(done)) {
            result->data = reading->binaryData();
        }
        if (waiting) waiting->quit();
    });
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    job->start();
    if (!result->finished) loop.exec();
    if (!result->finished) result->errorText = "timed out";
    return *result;
}

JobResult read(const std::string& service, const std::string& account, int timeoutMs) {
    auto* job = new QKeychain::ReadPasswordJob(QString::fromStdString(service));
    job->setKey(QString::fromStdString(account));
    return run(job, timeoutMs);
}

// Whether a Secret Service answers on the session bus but has no default
// collection: the first item stored would have to make one, which only a
// person can do, through a prompt. Asked over D-Bus, which prompts nothing.
bool lacksDefaultCollection() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return false;
    QDBusMessage call =
        QDBusMessage::createMethodCall("org.freedesktop.secrets", "/org/freedesktop/secrets",
                                       "org.freedesktop.Secret.Service", "ReadAlias");
    call << QString("default");
    QDBusMessage reply = bus.call(call, QDBus::Block, kProbeTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return false;
    return qdbus_cast<QDBusObjectPath>(reply.arguments().first()).path() == "/";
}

JobResult write(const std::string& service, const std::string& account, const std::string& password,
                int timeoutMs) {
    auto* job = new QKeychain::WritePasswordJob(QString::fromStdString(service));
    job->setKey(QString::fromStdString(account));
    // As text: the item holds the UTF-8 password itself, which other
    // Secret Service clients show as it is (binary data is kept in Base64).
    job->setTextData(QString::fromStdString(password));
    return run(job, timeoutMs);
}

}  // namespace

bool VHKeychainCredentialStore::available(const std::string& service) {
    // Without a keyring (gnome-keyring started by D-Bus where nobody logged
    // in to a desktop) reads find nothing and every write fails or prompts.
    if (lacksDefaultCollection()) return false;
    JobResult index = read(service, kIndexAccount, kProbeTimeoutMs);
    return index.finished &&
           (index.error == QKeychain::NoError || index.error == QKeychain::EntryNotFound);
}

std::vector<std::string> VHKeychainCredentialStore::accounts(const std::string& service) {
    std::vector<std::string> names;
    std::optional<std::string> index = password(service, kIndexAccount);
    for (const std::string& line : VHSplit(index.value_or(""), '\n')) {
        if (!line.empty()) names.push_back(line);
    }
    return names;
}

std::optional<std::string> VHKeychainCredentialStore::password(const std::string& service,
                                                               const std::string& account) {
    JobResult result = read(service, account, kJobTimeoutMs);
    if (result.finished && result.error == QKeychain::NoError) return result.data.toStdString();
    if (!result.finished || result.error != QKeychain::EntryNotFound) {
        VHLog(kLogMain, "Warning! Cannot read from the Secret Service: %@", result.errorText);
    }
    return std::nullopt;
}

bool VHKeychainCredentialStore::setPassword(const std::string& service, const std::string& account,
                                            const std::string& password) {
    JobResult result = write(service, account, password, kJobTimeoutMs);
    if (!result.finished || result.error != QKeychain::NoError) {
        VHLog(kLogMain, "Warning! Cannot write to the Secret Service: %@", result.errorText);
        return false;
    }
    if (account == kIndexAccount) return true;
    std::vector<std::string> names = accounts(service);
    if (std::find(names.begin(), names.end(), account) != names.end()) return true;
    names.push_back(account);
    return writeIndex(service, names);
}

bool VHKeychainCredentialStore::deletePassword(const std::string& service,
                                               const std::string& account) {
    auto* job = new QKeychain::DeletePasswordJob(QString::fromStdString(service));
    job->setKey(QString::fromStdString(account));
    JobResult result = run(job, kJobTimeoutMs);
    bool deleted = result.finished &&
                   (result.error == QKeychain::NoError || result.error == QKeychain::EntryNotFound);
    if (!deleted) {
        VHLog(kLogMain, "Warning! Cannot delete from the Secret Service: %@", result.errorText);
        return false;
    }
    std::vector<std::string> names = accounts(service);
    auto kept = std::remove(names.begin(), names.end(), account);
    if (kept == names.end()) return true;
    names.erase(kept, names.end());
    return writeIndex(service, names);
}

bool VHKeychainCredentialStore::writeIndex(const std::string& service,
                                           const std::vector<std::string>& accounts) {
    std::string text;
    for (const std::string& name : accounts) text += name + "\n";
    return setPassword(service, kIndexAccount, text);
}

}  // namespace vh
