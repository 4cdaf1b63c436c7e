// The screenshot upload folder as stored in the settings: a share id, then
// the rest of the path inside the share ("team-documents/Screenshots"), and
// how it shows to the user ("Team Documents/Screenshots"). Resolved through
// the store, never through the drive.
//
// Any thread (the store may be asked from anywhere).
#pragma once

#include <QString>
#include <optional>
#include <string>

#include "store/VHLoginRecords.h"

namespace vh {

struct VHScreenshotTarget {
    // The settings keys, without the application title.
    static constexpr const char* kUploadKey = "getUploadScreenshots";
    static constexpr const char* kPathKey = "getUploadScreenshotsPath";
    static constexpr const char* kLinkKey = "getCreateScreenshotLink";

    std::string shareId;
    std::string rest;  // "" for the share's own folder; no leading "/"

    // The stored form; nothing for an empty value.
    static std::optional<VHScreenshotTarget> parse(const std::string& stored);
    std::string stored() const;
    // The share's display name and the rest; the stored form when the share
    // is unknown.
    QString displayPath() const;
    std::optional<ManagedShare> share() const;
    // Screenshots cannot be written there (a share the user may only read).
    bool readOnly() const;
};

}  // namespace vh
