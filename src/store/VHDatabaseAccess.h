// How VHDatabase runs its statements; included only by its own sources.
#pragma once

#include <optional>
#include <type_traits>

#include "store/VHDatabase.h"
#include "store/VHDatabaseThread.h"
#include "store/VHFilesTable.h"
#include "store/VHWriteConnection.h"
#include "store/VHWriteQueue.h"

namespace vh {

template <typename Body>
auto VHDatabase::read(Body&& body) {
    auto onWriter = [&] {
        VHFilesTable t = writer_->table();
        return body(t);
    };
    if (thread_->isCurrent()) return onWriter();
    if (writer_->readsGoThroughWriter()) return thread_->run(onWriter);
    return readers_.run([&](VHSqlite* db) {
        VHFilesTable t(db);
        return body(t);
    });
}

template <typename Body>
auto VHDatabase::write(Body&& body) {
    using Result = std::invoke_result_t<Body&, VHFilesTable&>;
    if (thread_->isCurrent()) return writer_->job(body);
    std::optional<Result> result;
    bool committed = writes_->run([&](VHFilesTable& t) { result.emplace(body(t)); });
    if (!committed || !result) return Result{};
    return std::move(*result);
}

}  // namespace vh
