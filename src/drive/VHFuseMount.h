// Mounting and unmounting the drive with libfuse3's high-level API.
//
// mount_varnholt runs on a background thread for the whole life of the
// mount: it checks the mount point (failure codes -1 to -4, each announced
// with VHDriveEvents::fuseMountFailed), mounts, serves requests on several
// FUSE threads, and returns when the drive is unmounted (from inside or
// outside). libfuse installs no signal handlers: the application owns
// SIGINT/SIGTERM.
#pragma once

#include <fuse.h>

#include <string>
#include <vector>

namespace vh {

// How long the kernel keeps the drive's names and attributes without asking.
// Changes that reach the store from elsewhere invalidate them at once
// (VHInvalidateDrivePaths); only a file open at that moment may show its
// old attributes this long.
constexpr double kDriveCacheTimeoutSeconds = 10;

// argv: { program, mount path, "-f", "-o", "opt1,opt2,..." }. Returns 0 or
// the FUSE loop's result when the drive is unmounted, or a negative failure
// code of the mount-point checks:
//  -1 a dead mount could not be cleared, -2 the path is not a folder,
//  -3 stat failed with ENOTDIR, -4 the folder could not be made.
int mount_varnholt(int argc, char** argv);

// Announces a mount-point failure with its code.
void postMountError(int code);

// Called by libfuse when the kernel handshake completes: announces the mount.
void* varnholt_init(struct fuse_conn_info* connection, struct fuse_config* config);
// Called by libfuse when the session ends: announces the unmount.
void varnholt_destroy(void* privateData);

// Unmounts the drive at `mountPath` as an eject would; `lazy` detaches it
// even while busy. Returns 0 or an errno value (EBUSY when it is in use).
int VHUnmountDrive(const std::string& mountPath, bool lazy);

// Whether a FUSE mount at `path` has lost its server (statfs fails with
// ENOTCONN), also right after it died.
bool VHIsDeadMount(const std::string& path);

// Drops the kernel's cached entries and attributes of these drive paths so
// that the next lookup asks the drive again. Nothing when not mounted.
void VHInvalidateDrivePaths(const std::vector<std::string>& drivePaths);

// The process on whose behalf the current callback runs; -1 outside a
// callback of a running drive, such as a callback the client calls itself
// (libfuse's context exists only on its own threads). Any thread.
int VHFuseCallerPid();

}  // namespace vh
