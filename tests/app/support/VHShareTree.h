// Whole trees as text, to compare what the drive shows with what the
// emulator holds: one line per item, "/path/" for a folder and
// "/path size sha256" for a file, sorted.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "emulator/support/VHEmulatorProcess.h"

namespace vh::test {

// The tree below `folder` as its listing shows it (readdir, so hidden names
// stay out); every file is read whole. Symbolic links are left out.
std::string VHFolderTree(const std::string& folder);

// The emulator's live (not deleted) items of a share.
std::string VHServiceTree(const VHEmulatorProcess& emulator, const std::string& shareId);

// Waits until the emulator's tree of `shareId` equals the tree of
// `driveFolder` (the share's folder on the drive). Fails at once when the
// drive's tree is empty, and after `timeout` with the lines that differ.
testing::AssertionResult VHServiceMatchesDrive(const VHEmulatorProcess& emulator,
                                               const std::string& shareId,
                                               const std::string& driveFolder,
                                               std::chrono::seconds timeout);

// The last `count` lines of a text (client logs can be long).
std::string VHTail(const std::string& text, size_t count = 200);

}  // namespace vh::test
