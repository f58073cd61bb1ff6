// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vyn/property.h>

namespace vyn {

// What stands behind Property, one class for each platform; any thread may call it. What set() is
// given keeps to the rules for names and values, and the value is not too long.
class Property::Impl {
  public:
    // The platform's own, made with `new`.
    static Impl* create();

    virtual ~Impl() = default;
    virtual std::string get(const std::string& key, const std::string& def) = 0;
    virtual bool set(const std::string& key, const std::string& value) = 0;
    virtual void reload() = 0;
};

}  // namespace vyn
