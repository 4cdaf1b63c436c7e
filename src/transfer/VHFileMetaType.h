// Lets VHFile travel through queued signal connections.
#pragma once

#include <QMetaType>

#include "store/VHFile.h"

Q_DECLARE_METATYPE(vh::VHFile)
