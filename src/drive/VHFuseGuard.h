// The FUSE boundary: a callback's body runs inside VHFuseGuard, so nothing is
// thrown back into libfuse. Out of memory becomes -ENOMEM, anything else a log
// line and -EIO.
#pragma once

#include <cerrno>
#include <exception>
#include <new>

#include "lib/VHLog.h"

namespace vh {

template <typename Body>
int VHFuseGuard(const char* operation, Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    } catch (const std::exception& e) {
        VHLog(kLogDrive, "%s failed with exception: %s", operation, e.what());
    } catch (...) {
        VHLog(kLogDrive, "%s failed with an unknown exception", operation);
    }
    return -EIO;
}

}  // namespace vh
