#include "ui/VHLogWindow.h"

#include <QDate>
#include <QEvent>
#include <QFile>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>
#include <deque>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHLocalization.h"
#include "desktop/VHLogging.h"
#include "lib/VHAppInfo.h"
#include "lib/VHLog.h"
#include "ui/VHWindows.h"

namespace vh {

VHLogWindow::VHLogWindow(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName("logWindow");
    setWindowIcon(VHWindows::appIcon());
    hint_ = new QLabel;
    hint_->setWordWrap(true);
    text_ = new QPlainTextEdit;
    text_->setObjectName("log");
    text_->setReadOnly(true);
    text_->setLineWrapMode(QPlainTextEdit::NoWrap);
    text_->setMaximumBlockCount(kMaxLines);
    text_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    openFolder_ = new QPushButton;
    openFolder_->setObjectName("openFolder");
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(openFolder_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(hint_);
    layout->addWidget(text_);
    layout->addLayout(buttons);
    resize(820, 420);
    connect(openFolder_, &QPushButton::clicked, this,
            [] { VHDesktopServices::openURL("file://" + VHLogDir()); });
    loadTail();
    QPointer<VHLogWindow> window(this);
    VHSetLogMirror([window](const std::string& line, int type) {
        if (type != kLogMain) return;
        QString text = QString::fromStdString(line).trimmed();
        // Queued even on the main thread: the log's lock is held here.
        QMetaObject::invokeMethod(
            window.data(),
            [window, text] {
                if (window) window->append(text);
            },
            Qt::QueuedConnection);
    });
    retranslate();
}

VHLogWindow::~VHLogWindow() {
    VHSetLogMirror({});
}

void VHLogWindow::loadTail() {
    QString name = QDate::currentDate().toString("yyyy-MM-dd") + "-main.log";
    QFile file(QString::fromStdString(VHLogDir()) + "/" + name);
    if (!file.open(QIODevice::ReadOnly)) return;
    std::deque<QString> lines;
    while (!file.atEnd()) {
        lines.push_back(QString::fromUtf8(file.readLine()).trimmed());
        if (lines.size() > static_cast<size_t>(kTailLines)) lines.pop_front();
    }
    for (const QString& line : lines) text_->appendPlainText(line);
}

void VHLogWindow::append(const QString& line) {
    QScrollBar* bar = text_->verticalScrollBar();
    bool atEnd = bar->value() == bar->maximum();
    text_->appendPlainText(line);
    // Follows new lines unless the user scrolled up to read.
    if (atEnd) bar->setValue(bar->maximum());
}

void VHLogWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHLogWindow::retranslate() {
    setWindowTitle(VHLocalizedString("%1 Log").arg(kAppTitle));
    hint_->setText(
        VHLocalizedString("The main log of today; new lines appear as they are written."));
    openFolder_->setText(VHLocalizedString("Open Log Folder"));
}

}  // namespace vh
