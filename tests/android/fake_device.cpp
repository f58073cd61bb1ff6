// What a device offers to the library, in memory: the property service as it is seen through
// libcutils and through the C library, and the log, which goes to standard error.

#include <android/log.h>
#include <android/set_abort_message.h>
#include <cutils/properties.h>
#include <sys/system_properties.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {

std::map<std::string, std::string>& properties() {
    static std::map<std::string, std::string> values;
    return values;
}

}  // namespace

// `value` takes PROP_VALUE_MAX bytes. The length, which is 0 when there is no such property.
int __system_property_get(const char* key, char* value) {
    const std::string& found = properties()[key];
    std::memcpy(value, found.c_str(), found.size() + 1);
    return static_cast<int>(found.size());
}

// Failures are -1.
int __system_property_set(const char* key, const char* value) {
    if (std::strlen(value) >= PROP_VALUE_MAX) return -1;
    std::string& current = properties()[key];
    if (std::strncmp(key, "ro.", 3) == 0 && !current.empty()) return -1;
    current = value;
    return 0;
}

// A default that is given stands in for a missing value, cut to the length of one.
int property_get(const char* key, char* value, const char* default_value) {
    const int length = __system_property_get(key, value);
    if (length > 0 || default_value == nullptr) return length;
    return std::snprintf(value, PROPERTY_VALUE_MAX, "%s", default_value);
}

int property_set(const char* key, const char* value) { return __system_property_set(key, value); }

int __android_log_write(int priority, const char* tag, const char* text) {
    return std::fprintf(stderr, "%d %s %s\n", priority, tag, text);
}

void android_set_abort_message(const char* message) {
    std::fprintf(stderr, "abort message: %s\n", message);
}
