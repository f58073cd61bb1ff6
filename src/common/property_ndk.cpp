// SPDX-License-Identifier: Apache-2.0

#include <sys/system_properties.h>

#include "common/property_device.h"

namespace vyn {

namespace {

static_assert(PROP_VALUE_MAX == Property::kMaxValueLength + 1, "a value and its NUL");

// The C library's own call: the NDK has no libcutils.
class NdkProperty : public DeviceProperty {
  public:
    bool set(const std::string& key, const std::string& value) override {
        return __system_property_set(key.c_str(), value.c_str()) == 0;
    }
};

}  // namespace

Property::Impl* Property::Impl::create() { return new NdkProperty(); }

}  // namespace vyn
