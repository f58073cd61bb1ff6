// SPDX-License-Identifier: Apache-2.0

#include "common/property_device.h"

#include <sys/system_properties.h>

namespace vyn {

namespace {

void keepValue(void* kept, const char*, const char* value, uint32_t) {
    *static_cast<std::string*>(kept) = value;
}

}  // namespace

// Through the callback, since the other calls give an error text in the place of a value that is
// longer than usual, as that of a "ro." key may be.
std::string DeviceProperty::get(const std::string& key, const std::string& def) {
    std::string value;
    const prop_info* const property = __system_property_find(key.c_str());
    if (property != nullptr) __system_property_read_callback(property, keepValue, &value);
    return value.empty() ? def : value;
}

void DeviceProperty::reload() {}

}  // namespace vyn
