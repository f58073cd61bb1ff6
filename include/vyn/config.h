// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include <vyn/export.h>

// Settings of the whole process. Any thread may call everything here.
//
// The first group, which is not for a LogPrinter since it may log, reads a property (see Property)
// at each call, so that a change on a running device counts at once. Without the property a getter
// gives its default. So it does for a value that it cannot use, and logs one warning: the next for
// this property comes when its value is another useless one. Numbers are decimal and have nothing
// behind them; switches are "1", "y", "yes", "on", "true" or "0", "n", "no", "off", "false".
//
// docs/configuration.md lists the same by their keys.
namespace vyn::config {

// How peers prove who they are: 0 when they need not, else a number whose meaning is the
// application's. 0 to 255, by default 0. "persist.vyn.auth_mode"
[[nodiscard]] VYN_API int getAuthMode();

// The folder of the Unix socket files, with "/" at its end, which is added where it is missing. An
// absolute path, by default "/dev/vyn/". "persist.vyn.unixsocketpath"
[[nodiscard]] VYN_API std::string getUnixSocketPath();

// How often a keep-alive is due on network connections and on serial lines, and after how much
// silence the peer counts as gone. In milliseconds, 0 to 3600000; 0 is for never. By default 10000
// and 30000 on networks, 5000 and 15000 on serial lines. The library's workers do not read them:
// they are for the policies of its users (Worker::sendHeartbit, Worker::hasRemoteTimedout), which
// are asked every 200 ms. "persist.vyn.net.ht_interval", "persist.vyn.net.ht_timeout",
// "persist.vyn.ser.ht_interval", "persist.vyn.ser.ht_timeout"
[[nodiscard]] VYN_API int getNetHeartbitInterval();
[[nodiscard]] VYN_API int getNetHeartbitTimeout();
[[nodiscard]] VYN_API int getSerialHeartbitInterval();
[[nodiscard]] VYN_API int getSerialHeartbitTimeout();

// How long a call to a peer through the mesh waits for its answer. In milliseconds, 1 to 600000, by
// default 5000. "persist.vyn.mesh_call_timeout"
[[nodiscard]] VYN_API int getMeshCallTimeout();

// Whether what comes through the mesh is checked for going round in a loop. On by default.
// "persist.vyn.mesh_check_loop"
[[nodiscard]] VYN_API bool isMeshCheckLoop();

// The time between two searches for peers. In milliseconds, 100 to 3600000, by default 10000.
// "persist.vyn.discover_interval"
[[nodiscard]] VYN_API int getDiscoverInterval();

// Whether a peer is tried directly before the way through the mesh. On by default.
// "persist.vyn.try_direct"
[[nodiscard]] VYN_API bool isTryDirect();

// What logging::setLogLevel() gets from applyLogLevels(): lines of a greater level are dropped.
// 1 to 5, by default 5. "sys.vt.vyn.loglevel"
[[nodiscard]] VYN_API int getLogLevel();

// What logging::setLogPrintLevel() gets from applyLogLevels(): lines up to this level are logged as
// errors. 0 to 5, by default 1. "sys.vt.vyn.log.printlevel"
[[nodiscard]] VYN_API int getLogPrintLevel();

// The only process to which the print level applies, named as helper::getCurrentProcessName() has
// it; empty, the default, for all processes. "sys.vt.vyn.log.printlevel.pname"
[[nodiscard]] VYN_API std::string getLogPrintLevelProcessName();

// What identifies the device, each empty by default: the beginning of its names, the product it is,
// and when its system was built, as whoever built it wrote it. "ro.product.taldeviceprefix",
// "persist.sys.product.name", "persist.sys.build.time"
[[nodiscard]] VYN_API std::string getDevicePrefix();
[[nodiscard]] VYN_API std::string getProductName();
[[nodiscard]] VYN_API std::string getBuildTime();

// Whether the device is being made or tested. Off by default. "persist.sys.factory.mode"
[[nodiscard]] VYN_API bool isFactoryMode();

// Sets the levels of the logging from getLogLevel() and getLogPrintLevel(); the print level stays
// as it is when getLogPrintLevelProcessName() names another process. Called at the start of a
// process, and again when the properties may have changed.
VYN_API void applyLogLevels();

// Switches that the application sets. A change becomes visible to other threads soon, without
// ordering anything else.

// Whether workers queue what they write and send it when the peer takes it (true), or write at
// once (false). Off at first.
[[nodiscard]] VYN_API bool isAsyncWritting();
VYN_API void setAsyncWritting(bool on);

namespace debug {

// Whether a Buffer is printed whole; otherwise only its first 16 bytes are. Off at first.
[[nodiscard]] VYN_API bool DEBUG_BUF();
VYN_API void setDEBUG_BUF(bool on);

// Whether thread pools watch for tasks that run too long. Off at first.
[[nodiscard]] VYN_API bool DEBUG_THREAD_POOL_CHECK();
VYN_API void setDEBUG_THREAD_POOL_CHECK(bool on);

}  // namespace debug

}  // namespace vyn::config
