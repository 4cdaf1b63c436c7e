// Extended attributes of drive items.
//
// Stored attributes (any name an application sets) are kept, under their own
// names, as the extended attributes of the item's side file in the content
// cache: Files/<shareId>/<internalName>.attrs for a file or folder,
// Files/<shareId>.attrs for a share. They stay on this computer. The four
// status attributes (VHFuseStatusAttributes.h) are computed on every call:
// never stored, listed, set or removed.
//
// Security labels ("security.*") and POSIX ACLs ("system.posix_acl_*") are
// not supported: -ENOTSUP at once, so that programs stop asking. Every
// callback returns 0 (or a length) or -errno and never throws; any thread.
#pragma once

#include <fuse.h>

namespace vh {

// 0 or -errno of the side file's setxattr (XATTR_CREATE and XATTR_REPLACE
// honoured). A file's side file is made when missing; a share's is made with
// the share's cache folder, and -ENOENT here when it is missing. -EACCES on
// the root, -EPERM for a status attribute, -EFAULT for a path without share
// or live record.
int varnholt_setxattr(const char* path, const char* name, const char* value, size_t size,
                      int flags);
// The value's length, copied when `size` allows (size 0 asks for the length
// of a stored value). A status attribute is one byte and needs `size` >= 1:
// -ERANGE otherwise, also for size 0. -ENODATA for the root, a path without
// share or live record, a missing side file or a name not stored.
int varnholt_getxattr(const char* path, const char* name, char* value, size_t size);
// The stored names (never the status attributes, nor names answered
// -ENOTSUP), as listxattr(2) gives them: their length for size 0, -ERANGE
// when they do not fit. 0 for the root and for an item without side file.
int varnholt_listxattr(const char* path, char* list, size_t size);
// 0 or -errno of the side file's removexattr; -ENODATA without side file or
// on the root, -EPERM for a status attribute.
int varnholt_removexattr(const char* path, const char* name);

}  // namespace vh
