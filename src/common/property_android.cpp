#include <cutils/properties.h>

#include "common/property_impl.h"

namespace vyn {

namespace {

static_assert(PROPERTY_VALUE_MAX == Property::kMaxValueLength + 1, "a value and its NUL");

class AndroidProperty : public Property::Impl {
  public:
    // The service is not given the default, which it would cut to the length of a value.
    std::string get(const std::string& key, const std::string& def) override {
        char value[PROPERTY_VALUE_MAX] = {};
        return property_get(key.c_str(), value, nullptr) > 0 ? value : def;
    }

    bool set(const std::string& key, const std::string& value) override {
        return property_set(key.c_str(), value.c_str()) == 0;
    }

    void reload() override {}
};

}  // namespace

Property::Impl* Property::Impl::create() { return new AndroidProperty(); }

}  // namespace vyn
