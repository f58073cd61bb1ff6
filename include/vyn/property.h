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

    // The most characters of a value. Longer values in a host's file are left out, with a warning.
    static constexpr std::size_t kMaxValueLength = 91;

    // The value now, or `def` when there is none.
    [[nodiscard]] static std::string get(const std::string& key, const std::string& def);

    // False, with nothing changed, when the key is empty, the value too long, the key begins with
    // "ro." and has been set before (as all keys of a host's file have), or the device does not let
    // this process set it.
    static bool set(const std::string& key, const std::string& value);

    // On a host, looks up the variable and reads its file again; what was set is forgotten. Does
    // nothing on a device, where get() always gives the current value.
    static void reload();
};

}  // namespace vyn
