#include "drive/VHFuseOperations.h"

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseCreate.h"
#include "drive/VHFuseFileIO.h"
#include "drive/VHFuseMount.h"
#include "drive/VHFuseReaddir.h"
#include "drive/VHFuseRemove.h"
#include "drive/VHFuseRename.h"
#include "drive/VHFuseSetattr.h"
#include "drive/VHFuseXattr.h"

namespace vh {

fuse_operations varnholt_oper() {
    fuse_operations ops{};
    ops.getattr = varnholt_getattr;
    ops.readlink = varnholt_readlink;
    ops.mkdir = varnholt_mkdir;
    ops.unlink = varnholt_unlink;
    ops.rmdir = varnholt_rmdir;
    ops.symlink = varnholt_symlink;
    ops.rename = varnholt_rename;
    ops.link = varnholt_link;
    ops.chmod = varnholt_chmod;
    ops.chown = varnholt_chown;
    ops.truncate = varnholt_truncate;
    ops.utimens = varnholt_utimens;
    ops.open = varnholt_open;
    ops.read = varnholt_read;
    ops.read_buf = varnholt_read_buf;
    ops.write = varnholt_write;
    ops.statfs = varnholt_statfs;
    ops.release = varnholt_release;
    ops.fsync = varnholt_fsync;
    ops.setxattr = varnholt_setxattr;
    ops.getxattr = varnholt_getxattr;
    ops.listxattr = varnholt_listxattr;
    ops.removexattr = varnholt_removexattr;
    ops.opendir = varnholt_opendir;
    ops.readdir = varnholt_readdir;
    ops.releasedir = varnholt_releasedir;
    ops.init = varnholt_init;
    ops.destroy = varnholt_destroy;
    ops.create = varnholt_create;
    ops.fallocate = varnholt_fallocate;
    return ops;
}

}  // namespace vh
