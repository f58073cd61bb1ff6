// SPDX-License-Identifier: Apache-2.0

#include <vyn/property.h>

#include "common/property_impl.h"
#include "common/property_rules.h"

namespace vyn {

namespace {

// Never destroyed: threads may still ask when the process exits.
Property::Impl& platform() {
    static Property::Impl* const impl = Property::Impl::create();
    return *impl;
}

}  // namespace

std::string Property::get(const std::string& key, const std::string& def) {
    return platform().get(key, def);
}

bool Property::set(const std::string& key, const std::string& value) {
    return property_rules::isName(key) && property_rules::isText(value) &&
           value.size() <= kMaxValueLength && platform().set(key, value);
}

void Property::reload() { platform().reload(); }

}  // namespace vyn
