#pragma once

#include <string>

namespace vyn {

// Gives the file at `path` a new content so that a reader finds the old or the new one, whole, also
// after a crash: writes a file beside it, syncs it, renames it over and syncs the directory. A
// symbolic link is followed; mode and owner are kept.
//
// Where the directory does not allow that, or the owner cannot be kept, rewrites the file in place,
// after making sure that the disk has room. False when the content could not be written.
[[nodiscard]] bool replaceFile(const std::string& path, const std::string& content);

}  // namespace vyn
