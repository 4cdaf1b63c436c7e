// Batches of server changes as transactions on the database thread: queued one
// after another, applied in slices between which other jobs run, and then
// committed together with the share's journal position, or rolled back whole.
#include <malloc.h>

#include <QThreadPool>
#include <algorithm>
#include <chrono>
#include <future>

#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHDatabaseServerEffects.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

// A job queued while a batch is applied waits for one slice at most.
constexpr size_t kItemsPerSlice = 256;
constexpr auto kSliceTime = std::chrono::milliseconds(1);
// Pages smaller than this leave too little behind to be worth a trim.
constexpr size_t kItemsBeforeTrim = 1000;

}  // namespace

struct VHDatabase::PageRun {
    std::vector<VHVirtualFile> items;
    ManagedShare share;
    std::optional<int64_t> tick;  // the journal position it moves the share to
    std::function<void(bool)> done;
    std::unique_ptr<VHShutdownBlocker> block;  // from queueing until its effects ran
    bool synchronous = false;                  // queued on the database thread itself
    size_t next = 0;                           // the first item not applied yet
    ServerEffects effects;
    bool finished = false;
};

// ---- Entry points (any thread) -----------------------------------------------

void VHDatabase::applyCatchUpPage(OSXCatchUpResponse page, ManagedShare share,
                                  std::function<void(bool applied)> done) {
    // Its answer would come while the store is unloaded and the process ends.
    if (terminating()) {
        if (done) done(false);
        return;
    }
    std::shared_ptr<PageRun> run =
        newPage(std::move(page.VhVirtualFiles).value_or(std::vector<VHVirtualFile>{}), share,
                page.LargestTick, std::move(done));
    thread_->post([this, run] { queuePage(run); });
}

bool VHDatabase::updateFiles(const OSXCatchUpResponse& update, const ManagedShare& share) {
    return applyBatch(update.VhVirtualFiles.value_or(std::vector<VHVirtualFile>{}), share,
                      update.LargestTick);
}

bool VHDatabase::updateFile(const VHVirtualFile& item, const ManagedShare& share) {
    return applyBatch({item}, share, static_cast<int64_t>(item.ShareTick));
}

bool VHDatabase::updateFiles(const std::vector<VHVirtualFile>& items, const ManagedShare& share) {
    return applyBatch(items, share, std::nullopt);
}

bool VHDatabase::applyBatch(std::vector<VHVirtualFile> items, const ManagedShare& share,
                            std::optional<int64_t> tick) {
    if (thread_->isCurrent()) return applyBatchHere(std::move(items), share, tick);
    std::promise<bool> applied;
    std::future<bool> result = applied.get_future();
    std::shared_ptr<PageRun> page =
        newPage(std::move(items), share, tick, [&applied](bool ok) { applied.set_value(ok); });
    thread_->post([this, page] { queuePage(page); });
    return result.get();
}

// On the database thread nobody may wait for a batch queued behind the
// running job: the batch runs to its end at once.
bool VHDatabase::applyBatchHere(std::vector<VHVirtualFile> items, const ManagedShare& share,
                                std::optional<int64_t> tick) {
    if (openPage_ || writer_->inJob()) {
        VHLog(kLogDatabase,
              "Warning! Batch of %d server changes for share %@ refused: another batch or "
              "change is in progress on the database thread.",
              items.size(), share.shareId());
        return false;
    }
    bool applied = false;
    std::shared_ptr<PageRun> page =
        newPage(std::move(items), share, tick, [&applied](bool ok) { applied = ok; });
    page->synchronous = true;
    pendingPages_.push_front(page);
    startNextPage();
    return applied;
}

std::shared_ptr<VHDatabase::PageRun> VHDatabase::newPage(std::vector<VHVirtualFile> items,
                                                         const ManagedShare& share,
                                                         std::optional<int64_t> tick,
                                                         std::function<void(bool)> done) {
    auto page = std::make_shared<PageRun>();
    page->items = std::move(items);
    page->share = share;
    page->tick = tick;
    page->done = std::move(done);
    page->block = std::make_unique<VHShutdownBlocker>(shutdown_);
    return page;
}

// ---- On the database thread ----------------------------------------------------

void VHDatabase::queuePage(std::shared_ptr<PageRun> page) {
    pendingPages_.push_back(std::move(page));
    startNextPage();
}

void VHDatabase::startNextPage() {
    if (openPage_ || pendingPages_.empty()) return;
    std::shared_ptr<PageRun> page = pendingPages_.front();
    pendingPages_.pop_front();
    if (!beginPage(*page)) {
        finishPage(page, false);
        return;
    }
    openPage_ = page;
    runSlice(page);
}

bool VHDatabase::beginPage(PageRun& page) {
    if (page.tick) {
        ManagedShare current = storage_.shareWithId(page.share.shareId()).value_or(page.share);
        VHLog(kLogDatabase, "Updating share %@ from tick %d to tick %d. Files in update %d.",
              current.shareId(), current.LastApplyedJournalTick, *page.tick, page.items.size());
        if (current.isSubfolderShare()) prepareSubfolderShareItems(page.items, current);
        page.share = current;
    }
    return writer_->beginPage();
}

void VHDatabase::prepareSubfolderShareItems(std::vector<VHVirtualFile>& items,
                                            const ManagedShare& share) {
    VHLog(kLogDatabase, ">>>>>>>>>>>> found subfolder share: %@ virtualFiles: %li", share.shareId(),
          items.size());
    for (VHVirtualFile& item : items) {
        item.ParentShareId = share.ParentShareId;
        VHLog(kLogDatabase, ">>>>>>>>>>>> adding parentShareId: %@ to: %@",
              share.ParentShareId.value_or(""), item.PublicName.value_or(""));
        // Top items keep the shared folder's id as their parent: the drive lists a
        // subfolder share's root by its InternalName.
        item.ShareId = share.ShareId;
    }
}

void VHDatabase::runSlice(const std::shared_ptr<PageRun>& page) {
    do {
        if (page->finished) return;  // ended by unload() meanwhile
        if (!applySlice(*page)) {
            finishPage(page, false);
            return;
        }
        if (page->next >= page->items.size()) {
            finishPage(page, true);
            return;
        }
    } while (page->synchronous);
    auto resume = [this, page] { thread_->post([this, page] { runSlice(page); }); };
    if (sliceGate_) {
        sliceGate_(resume);
    } else {
        resume();
    }
}

bool VHDatabase::applySlice(PageRun& page) {
    VHFilesTable t = writer_->table();
    size_t end = std::min(page.items.size(), page.next + kItemsPerSlice);
    auto until = std::chrono::steady_clock::now() + kSliceTime;
    while (page.next < end) {
        applyServerItem(t, page.items[page.next++], page.share.shareId(), page.effects);
        if (std::chrono::steady_clock::now() >= until) break;
    }
    return !writer_->pageFailed();
}

void VHDatabase::finishPage(const std::shared_ptr<PageRun>& page, bool applied) {
    if (page->finished) return;
    page->finished = true;
    if (openPage_ == page) {
        if (applied && !writer_->commitPage()) applied = false;
        if (!applied) writer_->rollbackPage();
        openPage_.reset();
    }
    // Before anyone resolves a path again: readers that went through this
    // thread may have cached paths of rows that are gone now, and the next
    // lookup must not take an old path to a changed row.
    dropCachedPaths(page->effects.touched);
    if (applied && page->tick) {
        int64_t tick = *page->tick;
        if (const std::optional<uint64_t>& held = page->effects.heldBackTick; held && *held > 0) {
            tick = std::min(tick, static_cast<int64_t>(*held) - 1);
        }
        storage_.setShareJournalTick(page->share.shareId(), tick, VHDate::now());
        storage_.saveDelayed();
    }
    if (!applied) {
        VHLog(kLogDatabase,
              "Warning! Batch of %d server changes for share %@ was not applied; its journal "
              "position stays where it was.",
              page->items.size(), page->share.shareId());
    }
    if (!pendingPages_.empty()) thread_->post([this] { startNextPage(); });
    std::vector<VHVirtualFile>().swap(page->items);
    auto announce = [this, page, applied] {
        if (applied) announceServerEffects(page->effects);
        if (page->done) page->done(applied);
        page->block.reset();
        // A large catch-up leaves its pages' memory free in the threads'
        // allocator arenas, where it would stay: give it back.
        if (page->effects.touched.size() >= kItemsBeforeTrim) malloc_trim(0);
    };
    if (page->synchronous) {
        announce();
    } else {
        effects_->start(VHHandOff(announce));
    }
}

void VHDatabase::failAllPages() {
    if (openPage_) finishPage(openPage_, false);
    std::deque<std::shared_ptr<PageRun>> pending;
    pending.swap(pendingPages_);
    for (const std::shared_ptr<PageRun>& page : pending) finishPage(page, false);
}

// ---- Testing --------------------------------------------------------------------

void VHDatabase::setStatementFaultForTesting(std::function<bool(const std::string& sql)> fault) {
    thread_->run([&] { writer_->setFault(std::move(fault)); });
}

void VHDatabase::setSliceGateForTesting(std::function<void(std::function<void()> resume)> gate) {
    thread_->run([&] { sliceGate_ = std::move(gate); });
}

}  // namespace vh
