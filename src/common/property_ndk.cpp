#include <sys/system_properties.h>

#include "common/property_impl.h"

namespace vyn {

namespace {

static_assert(PROP_VALUE_MAX == Property::kMaxValueLength + 1, "a value and its NUL");

// The C library's own calls: the NDK has no libcutils.
class NdkProperty : public Property::Impl {
  public:
    std::string get(const std::string& key, const std::string& def) override {
        char value[PROP_VALUE_MAX] = {};
        return __system_property_get(key.c_str(), value) > 0 ? value : def;
    }

    bool set(const std::string& key, const std::string& value) override {
        return __system_property_set(key.c_str(), value.c_str()) == 0;
    }

    void reload() override {}
};

}  // namespace

Property::Impl* Property::Impl::create() { return new NdkProperty(); }

}  // namespace vyn
