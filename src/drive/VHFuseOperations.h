// The drive's operations table: which FUSE request each callback serves.
#pragma once

#include <fuse.h>

namespace vh {

fuse_operations varnholt_oper();

}  // namespace vh
