// SPDX-License-Identifier: Apache-2.0

#include <vyn/config.h>
#include <vyn/helper.h>
#include <vyn/logging.h>
#include <vyn/property.h>

#include "common/config_value.h"

namespace vyn::config {

namespace {

constexpr int kHourMs = 3600000;

// Key, default, least and greatest value.
constexpr NumberKey kAuthMode{"persist.vyn.auth_mode", 0, 0, 255};
constexpr NumberKey kNetHeartbitInterval{"persist.vyn.net.ht_interval", 10000, 0, kHourMs};
constexpr NumberKey kNetHeartbitTimeout{"persist.vyn.net.ht_timeout", 30000, 0, kHourMs};
constexpr NumberKey kSerialHeartbitInterval{"persist.vyn.ser.ht_interval", 5000, 0, kHourMs};
constexpr NumberKey kSerialHeartbitTimeout{"persist.vyn.ser.ht_timeout", 15000, 0, kHourMs};
constexpr NumberKey kMeshCallTimeout{"persist.vyn.mesh_call_timeout", 5000, 1, 600000};
constexpr NumberKey kDiscoverInterval{"persist.vyn.discover_interval", 10000, 100, kHourMs};
constexpr NumberKey kLogLevel{"sys.vt.vyn.loglevel", logging::kLevelVerbose, logging::kLevelError,
                              logging::kLevelVerbose};
constexpr NumberKey kLogPrintLevel{"sys.vt.vyn.log.printlevel", logging::kLevelError, 0,
                                   logging::kLevelVerbose};

// Key and default.
constexpr SwitchKey kMeshCheckLoop{"persist.vyn.mesh_check_loop", true};
constexpr SwitchKey kTryDirect{"persist.vyn.try_direct", true};
constexpr SwitchKey kFactoryMode{"persist.sys.factory.mode", false};
constexpr FolderKey kUnixSocketPath{"persist.vyn.unixsocketpath", "/dev/vyn/"};

// Any text is good, and none is the default.
constexpr char kLogPrintLevelProcessName[] = "sys.vt.vyn.log.printlevel.pname";
constexpr char kDevicePrefix[] = "ro.product.taldeviceprefix";
constexpr char kProductName[] = "persist.sys.product.name";
constexpr char kBuildTime[] = "persist.sys.build.time";

}  // namespace

int getAuthMode() { return read(kAuthMode); }

std::string getUnixSocketPath() { return read(kUnixSocketPath); }

int getNetHeartbitInterval() { return read(kNetHeartbitInterval); }

int getNetHeartbitTimeout() { return read(kNetHeartbitTimeout); }

int getSerialHeartbitInterval() { return read(kSerialHeartbitInterval); }

int getSerialHeartbitTimeout() { return read(kSerialHeartbitTimeout); }

int getMeshCallTimeout() { return read(kMeshCallTimeout); }

bool isMeshCheckLoop() { return read(kMeshCheckLoop); }

int getDiscoverInterval() { return read(kDiscoverInterval); }

bool isTryDirect() { return read(kTryDirect); }

int getLogLevel() { return read(kLogLevel); }

int getLogPrintLevel() { return read(kLogPrintLevel); }

std::string getLogPrintLevelProcessName() { return Property::get(kLogPrintLevelProcessName, ""); }

std::string getDevicePrefix() { return Property::get(kDevicePrefix, ""); }

std::string getProductName() { return Property::get(kProductName, ""); }

std::string getBuildTime() { return Property::get(kBuildTime, ""); }

bool isFactoryMode() { return read(kFactoryMode); }

void applyLogLevels() {
    logging::setLogLevel(getLogLevel());
    const std::string process = getLogPrintLevelProcessName();
    if (process.empty() || process == helper::getCurrentProcessName()) {
        logging::setLogPrintLevel(getLogPrintLevel());
    }
}

}  // namespace vyn::config
