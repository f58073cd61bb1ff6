// SPDX-License-Identifier: Apache-2.0

#include "common/config_value.h"

#include <vyn/property.h>
#include <vyn/setting_value.h>

namespace vyn::config {

namespace {

constexpr char kPlace[] = "property";

std::string valueOf(const char* key) { return Property::get(key, ""); }

}  // namespace

int read(const NumberKey& number) {
    return static_cast<int>(setting::integer(kPlace, number.key, valueOf(number.key), number.def,
                                             number.min, number.max));
}

bool read(const SwitchKey& onOff) {
    return setting::isOn(kPlace, onOff.key, valueOf(onOff.key), onOff.def);
}

std::string read(const FolderKey& folder) {
    return setting::folder(kPlace, folder.key, valueOf(folder.key), folder.def);
}

}  // namespace vyn::config
