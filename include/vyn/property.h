// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>

#include <vyn/export.h>

namespace vyn {

// The system's properties: short texts by key, shared by all processes of a device. Any thread may
// call everything here, but no LogPrinter: reading a host's file may log.
//
// On a device they are those of the property service. On a host they are the process's own: the
// entries of the file that the environment variable VYN_PROPERTY_FILE names when they are first
// used (an IniConfig; without the variable there are none), and what the process sets, which is
// kept in memory only. The limits of a device hold there too.
//
// A property without a value and one that does not exist are the same.
class VYN_API Property {
  public:
    // What the platform provides; internal.
    class Impl;

    // The most bytes of a value that is set. Only keys that begin with "ro." may have longer ones,
    // on a device from its own files, on a host from its file; others there are left out, with a
    // warning.
    static constexpr std::size_t kMaxValueLength = 91;

    // The value now, or `def` when there is none.
    [[nodiscard]] static std::string get(const std::string& key, const std::string& def);

    // False, with nothing changed, when the key is no name (letters, digits and ".-@:_", with no
    // dot in front, at the end or beside another), the value is too long or no UTF-8, the key
    // begins with "ro." and has been set before (as all keys of a host's file have), or the device
    // does not let this process set it. Lines of a host's file with such a key or value are left
    // out as well.
    static bool set(const std::string& key, const std::string& value);

    // On a host, looks up the variable and reads its file again; what was set is forgotten. Does
    // nothing on a device, where get() always gives the current value.
    static void reload();
};

}  // namespace vyn
