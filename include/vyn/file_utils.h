// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

#include <vyn/buffer.h>
#include <vyn/export.h>

// Operations on files by path. They hold no state and may be called from any thread. A failure is
// logged in one line, "[2] No such file or directory. stat fail.", and given back as -errno.
namespace vyn {

// The size of what is at `path` in bytes, or -errno. A size beyond the range of int, which is
// 2 GiB, is given as the greatest int.
[[nodiscard]] VYN_API int filesize(const std::string& path);

// True when the file can be read, not merely when it is there. Logs nothing.
[[nodiscard]] VYN_API bool fileexists(const std::string& path);

// True when the file can be read already, which leaves it as it is, or has now been made, empty.
// A file that may be written but not read is emptied.
VYN_API bool createfile(const std::string& path);

// Fills `out` with the whole file and returns its size, 0 for an empty one. As many bytes are read
// as the file has when the reading starts: the files under /proc, which have no size, read as
// empty.
//
// On failure returns -errno. When the file cannot be opened or its size not be told, `out` is as it
// was. When it ends before its size (it has shrunk meanwhile) or cannot be read (a directory), the
// result is -EIO or the error of the read, and `out` has the file's size, the bytes that were read
// and then zeros.
[[nodiscard]] VYN_API int readFile(const std::string& path, Buffer& out);

// Fills `out` with all that can be read until the end comes and returns how much that is: for files
// without a size, such as those under /proc and /sys, and for pipes, whose writers it waits for. On
// failure returns -errno, and `out` is as it was; -EFBIG means more than a buffer holds. A
// descriptor is read from where it stands and stays open.
[[nodiscard]] VYN_API int readToEnd(const std::string& path, Buffer& out);
[[nodiscard]] VYN_API int readToEnd(int descriptor, Buffer& out);

// Gives the file at `path` a new content so that a reader finds the old or the new one, whole, also
// after a crash: writes a file beside it, syncs it, renames it over and syncs the directory. What
// is not there yet is made. A symbolic link is followed; mode, owner and extended attributes are
// kept; other hard links to the file keep the old content. What is no regular file is written to.
//
// Where the directory does not allow that, or the owner cannot be kept, the file is rewritten in
// place, after making sure that the disk has room; a crash meanwhile can then cost its content.
//
// False, with an error line and the old content, when the new one could not be written. Waits for
// the storage. A process that is killed meanwhile may leave a file beside the target, with the
// beginning of its name, an identifier and ".tmp", which can be deleted.
[[nodiscard]] VYN_API bool replaceFile(const std::string& path, std::string_view content);

// The number of sub-directories whose names have exactly 9 or exactly 16 characters; 0 when the
// directory cannot be read. A symbolic link to a directory does not count.
[[nodiscard]] VYN_API int getDirCount(const std::string& path);

}  // namespace vyn
