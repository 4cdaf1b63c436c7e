#include "drive/VHDriveEvents.h"

namespace vh {

VHDriveEvents& VHDriveEvents::instance() {
    static VHDriveEvents events;
    return events;
}

}  // namespace vh
