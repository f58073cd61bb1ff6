// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace vyn {

// The address of a Unix socket in the form of the system calls. Its text is a path, or '@' and an
// abstract name, or empty for a socket without address.
class UnixAddress {
  public:
    // False, with an error line and errno set, for a text that is no address.
    [[nodiscard]] static bool parse(const std::string& text, UnixAddress* address);
    [[nodiscard]] static bool isAbstract(const std::string& text);

    [[nodiscard]] std::string text() const;
    // The path of the socket file; empty for an abstract name.
    [[nodiscard]] const char* path() const { return mStorage.sun_path; }

    [[nodiscard]] sockaddr* raw() { return reinterpret_cast<sockaddr*>(&mStorage); }
    [[nodiscard]] const sockaddr* raw() const {
        return reinterpret_cast<const sockaddr*>(&mStorage);
    }
    [[nodiscard]] socklen_t length() const { return mLength; }
    // For system calls that write an address: goes in as how much they may write.
    [[nodiscard]] socklen_t* lengthOut() { return &mLength; }

  private:
    sockaddr_un mStorage{};
    socklen_t mLength = sizeof mStorage;
};

}  // namespace vyn
