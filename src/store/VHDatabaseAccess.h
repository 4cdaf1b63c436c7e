// How VHDatabase runs its statements; included only by its own sources.
#pragma once

#include <mutex>

#include "store/VHDatabase.h"
#include "store/VHDatabaseThread.h"
#include "store/VHFilesTable.h"

namespace vh {

template <typename Body>
auto VHDatabase::read(Body&& body) {
    return thread_->run([&] {
        VHFilesTable table(connection());
        return body(table);
    });
}

template <typename Body>
auto VHDatabase::write(Body&& body) {
    std::lock_guard lock(writerMutex_);
    return read(std::forward<Body>(body));
}

}  // namespace vh
