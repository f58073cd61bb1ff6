// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <cstring>

// What Archive::put() of archive.h, which includes this, copies short items with: they are numbers
// and short texts, for which the call into the library takes longer than the copying.
namespace vyn::detail {

// The memory behind an archive's last item.
struct ArchiveRoom {
    // Where the next item goes, and where the memory ends; null without any.
    char* begin = nullptr;
    char* end = nullptr;

    // Adds an item: its length, low byte first, and its bytes. False, with nothing done, for an
    // item that is not short, or when the room is short.
    //
    // Two pieces of a fixed size, which may overlap, cost less than memcpy() of any size. What
    // takes most of the time then is memory that is not at hand when it is written to, so it is
    // asked for beforehand.
    bool add(const void* bytes, int n) {
        constexpr int kAhead = 256;
        if (n < 4 || n > 32 || bytes == nullptr || end - begin < kAhead) return false;
        __builtin_prefetch(begin + kAhead, 1);
        const int32_t length = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? n : n << 24;
        std::memcpy(begin, &length, sizeof length);
        char* const item = begin + sizeof length;
        begin = item + n;
        if (n < 8) {
            copyTwice<4>(item, bytes, n);
        } else if (n < 16) {
            copyTwice<8>(item, bytes, n);
        } else {
            copyTwice<16>(item, bytes, n);
        }
        return true;
    }

  private:
    template <int Piece>
    static void copyTwice(char* to, const void* from, int n) {
        std::memcpy(to, from, Piece);
        std::memcpy(to + n - Piece, static_cast<const char*>(from) + n - Piece, Piece);
    }
};

}  // namespace vyn::detail
