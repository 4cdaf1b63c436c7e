// Two files trading contents: RENAME_EXCHANGE, and a file renamed over
// another, which keeps the other's identity on the service.
#pragma once

#include "store/VHFile.h"

namespace vh {

// rename(2) with RENAME_EXCHANGE: both must be complete local files.
int varnholt_exchange(const char* path1, const char* path2);

// Whether `source`'s contents can replace `target`'s in place: both files
// of one share, the source's copy complete.
bool VHCanReplaceContents(const VHFile& source, const VHFile& target);
// `target` takes `source`'s contents and attributes and stays the same
// item (a save by rename-over keeps the document's identity); `source` goes.
int VHReplaceFile(const VHFile& source, const VHFile& target);

}  // namespace vh
