// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "common/property_impl.h"

namespace vyn {

// The properties of a device as far as they are read, which the C library does whole; how they are
// set differs between builds.
class DeviceProperty : public Property::Impl {
  public:
    std::string get(const std::string& key, const std::string& def) override;
    void reload() override;
};

}  // namespace vyn
