#include "drive/VHFuseMount.h"

#include <fuse_lowlevel.h>

#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "drive/VHDriveEvents.h"
#include "drive/VHFuseOperations.h"
#include "lib/VHLog.h"
#include "lib/VHThreadSafety.h"

extern char** environ;

namespace vh {

namespace {

// Held while the kernel's cache is invalidated, so that the session cannot
// end under it. A leaf lock.
VHMutex gFuseMutex;
struct fuse* gFuse VH_GUARDED_BY(gFuseMutex) = nullptr;  // set while the loop runs

// Runs fusermount3 with `arguments`; true when it succeeds.
bool runFusermount(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "fusermount3");
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawnp(&pid, "fusermount3", nullptr, nullptr, argv.data(), environ) != 0)
        return false;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The first argument that is neither an option nor an option's value.
std::string mountPointArgument(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "-o") {
            ++i;
        } else if (!arg.empty() && arg[0] != '-') {
            return arg;
        }
    }
    return "";
}

// Step 2 of mounting: the mount point must be a folder, made when missing.
int checkMountPoint(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : -2;
    if (errno == ENOENT) {
        if (mkdir(path.c_str(), 0775) == 0) return 0;
        VHLog(kLogMain, "Unable to create file system mount point.");
        return -4;
    }
    return errno == ENOTDIR ? -3 : 0;  // other errors: try to mount all the same
}

// Options of the caller's own come later and win.
void addDefaultOptions(struct fuse_args* args) {
    std::string seconds = std::to_string(kDriveCacheTimeoutSeconds);
    // No negative entries: a name created elsewhere shows at once. Changes
    // made elsewhere are invalidated when they arrive.
    std::string options =
        "-oentry_timeout=" + seconds + ",attr_timeout=" + seconds + ",negative_timeout=0";
    fuse_opt_insert_arg(args, 1, options.c_str());
}

int serve(struct fuse_args* args, const std::string& mountPoint) {
    addDefaultOptions(args);
    fuse_operations operations = varnholt_oper();
    struct fuse* fuse = fuse_new(args, &operations, sizeof operations, nullptr);
    if (!fuse) return 1;
    int result = 1;
    if (fuse_mount(fuse, mountPoint.c_str()) == 0) {
        {
            VHMutexLock lock(gFuseMutex);
            gFuse = fuse;
        }
        struct fuse_loop_config* config = fuse_loop_cfg_create();
        fuse_loop_cfg_set_clone_fd(config, 0);
        fuse_loop_cfg_set_max_threads(config, 16);
        result = fuse_loop_mt(fuse, config);
        fuse_loop_cfg_destroy(config);
        {
            VHMutexLock lock(gFuseMutex);
            gFuse = nullptr;
        }
        fuse_unmount(fuse);
    }
    fuse_destroy(fuse);
    return result;
}

}  // namespace

void postMountError(int code) {
    emit VHDriveEvents::instance().fuseMountFailed(code);
}

int mount_varnholt(int argc, char** argv) {
    std::string mountPoint = mountPointArgument(argc, argv);
    int code = 0;
    if (VHIsDeadMount(mountPoint) && VHUnmountDrive(mountPoint, true) != 0) {
        VHLog(kLogMain, "Unable to unmount an existing 'dead' filesystem.");
        code = -1;
    } else {
        code = checkMountPoint(mountPoint);
    }
    if (code != 0) {
        postMountError(code);
        return code;
    }
    struct fuse_args args = FUSE_ARGS_INIT(argc, argv);
    struct fuse_cmdline_opts options {};
    int result = 1;
    if (fuse_parse_cmdline(&args, &options) == 0 && options.mountpoint) {
        free(options.mountpoint);
        result = serve(&args, mountPoint);
    }
    VHLog(kLogMain, "fuse_main finished with return code %d", result);
    fuse_opt_free_args(&args);
    return result;
}

void* varnholt_init(struct fuse_conn_info* connection, struct fuse_config* config) {
    // Callbacks on open files identify them by their handle, never by path.
    config->nullpath_ok = 1;
    // Reads of complete copies go from the cache file to the kernel by splice.
    connection->want |= connection->capable & (FUSE_CAP_SPLICE_WRITE | FUSE_CAP_SPLICE_MOVE);
    emit VHDriveEvents::instance().fuseDidMount();
    return nullptr;
}

void varnholt_destroy(void*) {
    emit VHDriveEvents::instance().fuseDidUnmount();
}

int VHUnmountDrive(const std::string& mountPath, bool lazy) {
    if (geteuid() == 0) return umount2(mountPath.c_str(), lazy ? MNT_DETACH : 0) == 0 ? 0 : errno;
    // fusermount3 reports no errno; its failures are nearly always "busy".
    return runFusermount({lazy ? "-uz" : "-u", mountPath}) ? 0 : EBUSY;
}

int VHFuseCallerPid() {
    // Under the lock: libfuse deletes its context key when the drive goes.
    VHMutexLock lock(gFuseMutex);
    if (!gFuse) return -1;
    struct fuse_context* context = fuse_get_context();
    return context ? context->pid : -1;
}

bool VHIsDeadMount(const std::string& path) {
    // statfs always reaches the connection; a stat may still be answered
    // from the attributes the kernel cached before the daemon died.
    struct statfs st {};
    return statfs(path.c_str(), &st) != 0 && errno == ENOTCONN;
}

void VHInvalidateDrivePaths(const std::vector<std::string>& drivePaths) {
    VHMutexLock lock(gFuseMutex);
    if (!gFuse) return;
    for (const std::string& path : drivePaths) fuse_invalidate_path(gFuse, path.c_str());
}

}  // namespace vh
