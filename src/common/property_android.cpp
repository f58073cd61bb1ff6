// SPDX-License-Identifier: Apache-2.0

#include <cutils/properties.h>

#include "common/property_device.h"

namespace vyn {

namespace {

static_assert(PROPERTY_VALUE_MAX == Property::kMaxValueLength + 1, "a value and its NUL");

class AndroidProperty : public DeviceProperty {
  public:
    bool set(const std::string& key, const std::string& value) override {
        return property_set(key.c_str(), value.c_str()) == 0;
    }
};

}  // namespace

Property::Impl* Property::Impl::create() { return new AndroidProperty(); }

}  // namespace vyn
