#pragma once

#include <string>

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

// The number of sub-directories whose names have exactly 9 or exactly 16 characters; 0 when the
// directory cannot be read. A symbolic link to a directory does not count.
[[nodiscard]] VYN_API int getDirCount(const std::string& path);

}  // namespace vyn
