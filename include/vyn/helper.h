// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <vyn/export.h>

// Small functions for strings, time, the process, checksums and identifiers. Any thread may call
// them, where nothing else is said. Pointers passed in are not null, where nothing else is said.
namespace vyn::helper {

// `text` without the leading and trailing characters that occur in `chars`.
[[nodiscard]] VYN_API std::string trim(const std::string& text, const char* chars = " \t\r\n");

// Replace `out` by the pieces of `text` between the delimiters and return their number. As when
// reading lines, a delimiter ends a piece: "a," is one piece, "" is none, "a,,b" is three. `text`
// may be one of the pieces in `out`.
VYN_API int split(const std::string& text, std::list<std::string>& out, char delimiter);
VYN_API int split(const std::string& text, std::vector<std::string>& out, char delimiter);

// The pieces of `text` when a delimiter SEPARATES two pieces, unlike above: "a," is "a" and "",
// and "" is one empty piece.
[[nodiscard]] VYN_API std::vector<std::string> split(const std::string& text, char delimiter);

// In decimal.
[[nodiscard]] VYN_API std::string intToString(int value);

// False for an empty prefix.
[[nodiscard]] VYN_API bool startsWith(const std::string& text, const std::string& prefix);

// The items with `separator` between neighbours.
[[nodiscard]] VYN_API std::string implode(std::vector<std::string> items, const char* separator);

// The same items in the other container.
[[nodiscard]] VYN_API std::vector<std::string> l2v(const std::list<std::string>& items);
[[nodiscard]] VYN_API std::list<std::string> v2l(const std::vector<std::string>& items);

// The items between separators, led and ended by one: "|a|b|", and "|" for no items.
[[nodiscard]] VYN_API std::string dumplist(const std::list<std::string>& items, char separator);

// The tick: monotonic milliseconds in 32 bits, sign-extended where long is wider. It wraps, from
// the largest value to the smallest, every 49.7 days. Ticks are compared through tickDifference(),
// never with < or by plain subtraction.
[[nodiscard]] VYN_API long mtick();

// Milliseconds from `earlier` to `later`, right across the wrap; negative when `later` comes first.
// The two must lie within 24.8 days of each other.
[[nodiscard]] VYN_API long tickDifference(long later, long earlier);

// Monotonic nanoseconds.
[[nodiscard]] VYN_API int64_t ntick();

// Milliseconds of the wall clock since the epoch, modulo 2^32 and shown like a tick: good for
// differences over short spans only.
[[nodiscard]] VYN_API long abstime();

// The first word of the command line with which the process was started, cut at 1023 bytes. Read
// once and then kept; the reference stays good until the process exits. Empty, with a log line,
// while it cannot be read: the next call tries again.
[[nodiscard]] VYN_API const std::string& getCurrentProcessName();

// The kernel's id of this process.
[[nodiscard]] VYN_API int getCurrentProcessId();

// The system's text for an errno value.
[[nodiscard]] VYN_API std::string getErrorMessage(int error);

// Blocks the calling thread; a signal may end it early. Returns at once for less than a second.
VYN_API void sleep(int seconds);

// A 32-bit checksum. It is the CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320, register
// started with all ones), continued over the length, low byte first, in as many bytes as its value
// needs, and not inverted at the end: nothing gives 0xFFFFFFFF. It is therefore not the value other
// CRC-32 functions give. `data` may be null when `len` is 0; a negative length counts as 0. For
// data in pieces see digest.h.
[[nodiscard]] VYN_API uint32_t crc32(const void* data, int len);

// The MD5 digest (RFC 1321) in 32 upper-case hex digits. `data` may be null when `len` is 0; a
// negative length counts as 0. MD5 finds accidents, it does not keep out attackers.
[[nodiscard]] VYN_API std::string md5sum(const void* data, int len);

// A random identifier: 16 bytes of the system's random device as 36 lower-case characters in the
// form 8-4-4-4-12. No version or variant is marked in it. Falls back on uuid2() when the device
// cannot be read.
[[nodiscard]] VYN_API std::string uuid();

// A pseudo-random identifier of the same form, marked as version 4. It seeds rand() from the clock
// and logs that it was needed: it disturbs other users of rand(), may repeat what another process
// draws at the same instant, and must not be called from several threads at once. Prefer uuid().
[[nodiscard]] VYN_API std::string uuid2();

}  // namespace vyn::helper
