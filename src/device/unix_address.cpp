// SPDX-License-Identifier: Apache-2.0

#include "device/unix_address.h"

#include <vyn/logging.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace vyn {

namespace {

constexpr size_t kPathOffset = offsetof(sockaddr_un, sun_path);

// 0, or the error of a text that cannot be an address.
int errorOf(const std::string& text) {
    const bool hasNul = text.find('\0') != std::string::npos;
    if (text.empty() || text == "@" || hasNul) return EINVAL;
    return text.size() < sizeof sockaddr_un{}.sun_path ? 0 : ENAMETOOLONG;
}

}  // namespace

bool UnixAddress::parse(const std::string& text, UnixAddress* address) {
    if (const int error = errorOf(text); error != 0) {
        errno = error;
        VYN_LOG_ERRNO_ERROR << "no address of a unix socket: " << text;
        return false;
    }
    *address = UnixAddress();
    address->mStorage.sun_family = AF_UNIX;
    std::memcpy(address->mStorage.sun_path, text.data(), text.size());
    if (isAbstract(text)) address->mStorage.sun_path[0] = '\0';
    // A path is counted with the NUL behind it, an abstract name has none.
    const size_t size = isAbstract(text) ? text.size() : text.size() + 1;
    address->mLength = static_cast<socklen_t>(kPathOffset + size);
    return true;
}

bool UnixAddress::isAbstract(const std::string& text) { return !text.empty() && text[0] == '@'; }

std::string UnixAddress::text() const {
    const auto length = static_cast<size_t>(mLength);  // a device's socklen_t has a sign
    if (length <= kPathOffset) return "";
    const size_t size = std::min(length - kPathOffset, sizeof mStorage.sun_path);
    if (mStorage.sun_path[0] != '\0') return {path(), strnlen(path(), size)};
    std::string name(path(), size);
    std::replace(name.begin(), name.end(), '\0', '@');
    return name;
}

}  // namespace vyn
