#include "ui/VHFolderPicker.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "desktop/VHLocalization.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

// Item data: the share id, the path below the share, the parent id of the
// item's children, and whether they were loaded.
enum Role { kShareId = Qt::UserRole, kRest, kChildrenParent, kLoaded };

QTreeWidgetItem* makeItem(const QString& name, const std::string& shareId, const std::string& rest,
                          const std::string& childrenParent) {
    auto* item = new QTreeWidgetItem({name});
    item->setIcon(0, QIcon::fromTheme("folder"));
    item->setData(0, kShareId, QString::fromStdString(shareId));
    item->setData(0, kRest, QString::fromStdString(rest));
    item->setData(0, kChildrenParent, QString::fromStdString(childrenParent));
    item->setChildIndicatorPolicy(QTreeWidgetItem::ShowIndicator);
    return item;
}

}  // namespace

VHFolderPicker::VHFolderPicker(QWidget* parent) : QDialog(parent) {
    setObjectName("folderPicker");
    setWindowModality(Qt::WindowModal);
    hint_ = new QLabel;
    hint_->setWordWrap(true);
    tree_ = new QTreeWidget;
    tree_->setObjectName("folders");
    tree_->setHeaderHidden(true);
    choose_ = new QPushButton;
    choose_->setObjectName("choose");
    choose_->setDefault(true);
    cancel_ = new QPushButton;
    cancel_->setObjectName("cancel");
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cancel_);
    buttons->addWidget(choose_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(hint_);
    layout->addWidget(tree_);
    layout->addLayout(buttons);
    resize(420, 380);
    connect(tree_, &QTreeWidget::itemExpanded, this, &VHFolderPicker::expand);
    connect(tree_, &QTreeWidget::itemDoubleClicked, this, &VHFolderPicker::choose);
    connect(choose_, &QPushButton::clicked, this, &VHFolderPicker::choose);
    connect(cancel_, &QPushButton::clicked, this, &QDialog::reject);
    addShares();
    retranslate();
}

void VHFolderPicker::addShares() {
    std::vector<ManagedShare> shares = VHDatabase::database().shares();
    std::sort(shares.begin(), shares.end(), [](const ManagedShare& a, const ManagedShare& b) {
        return a.displayName() < b.displayName();
    });
    for (const ManagedShare& share : shares) {
        std::string id = share.ShareId.value_or("");
        if (id.empty() || id == kTempShareId) continue;
        std::string root = share.isSubfolderShare() ? share.InternalName.value_or(id) : id;
        tree_->addTopLevelItem(makeItem(QString::fromStdString(share.displayName()), id, "", root));
    }
}

void VHFolderPicker::expand(QTreeWidgetItem* item) {
    if (item->data(0, kLoaded).toBool()) return;
    item->setData(0, kLoaded, true);
    std::string shareId = item->data(0, kShareId).toString().toStdString();
    std::string rest = item->data(0, kRest).toString().toStdString();
    std::vector<VHFile> children = VHDatabase::database().filesInFolder(
        item->data(0, kChildrenParent).toString().toStdString(), true);
    std::sort(children.begin(), children.end(),
              [](const VHFile& a, const VHFile& b) { return a.publicName < b.publicName; });
    for (const VHFile& child : children) {
        if (child.isFile || VHIsPathIgnored(child.publicName)) continue;
        std::string path = rest.empty() ? child.publicName : rest + "/" + child.publicName;
        item->addChild(
            makeItem(QString::fromStdString(child.publicName), shareId, path, child.internalName));
    }
    if (item->childCount() == 0) item->setChildIndicatorPolicy(QTreeWidgetItem::DontShowIndicator);
}

QTreeWidgetItem* VHFolderPicker::itemWithPath(const QString& displayPath) {
    QStringList parts = displayPath.split('/', Qt::SkipEmptyParts);
    QTreeWidgetItem* found = nullptr;
    for (const QString& part : parts) {
        QTreeWidgetItem* next = nullptr;
        int count = found ? found->childCount() : tree_->topLevelItemCount();
        for (int i = 0; i < count && !next; ++i) {
            QTreeWidgetItem* item = found ? found->child(i) : tree_->topLevelItem(i);
            if (item->text(0) == part) next = item;
        }
        if (!next) return nullptr;
        next->setExpanded(true);  // loads its children
        found = next;
    }
    return found;
}

void VHFolderPicker::choose() {
    QTreeWidgetItem* item = tree_->currentItem();
    if (!item) return;
    VHScreenshotTarget target;
    target.shareId = item->data(0, kShareId).toString().toStdString();
    target.rest = item->data(0, kRest).toString().toStdString();
    accept();
    emit chosen(target);
}

void VHFolderPicker::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QDialog::changeEvent(event);
}

void VHFolderPicker::retranslate() {
    setWindowTitle(VHLocalizedString("Choose a Folder"));
    hint_->setText(VHLocalizedString("Screenshots are saved in this folder of the drive:"));
    choose_->setText(VHLocalizedString("Choose"));
    cancel_->setText(VHLocalizedString("Cancel"));
}

}  // namespace vh
