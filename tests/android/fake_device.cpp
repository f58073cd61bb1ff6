// SPDX-License-Identifier: Apache-2.0

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

using Properties = std::map<std::string, std::string>;

Properties& properties() {
    static Properties values;
    return values;
}

}  // namespace

const prop_info* __system_property_find(const char* key) {
    const auto found = properties().find(key);
    return found == properties().end() ? nullptr : reinterpret_cast<const prop_info*>(&*found);
}

void __system_property_read_callback(const prop_info* property,
                                     void (*callback)(void*, const char*, const char*, uint32_t),
                                     void* cookie) {
    const auto& [key, value] = *reinterpret_cast<const Properties::value_type*>(property);
    callback(cookie, key.c_str(), value.c_str(), 0);
}

// Failures are -1.
int __system_property_set(const char* key, const char* value) {
    const bool isReadOnly = std::strncmp(key, "ro.", 3) == 0;
    if (std::strlen(value) >= PROP_VALUE_MAX && !isReadOnly) return -1;
    std::string& current = properties()[key];
    if (isReadOnly && !current.empty()) return -1;
    current = value;
    return 0;
}

int property_set(const char* key, const char* value) { return __system_property_set(key, value); }

int __android_log_write(int priority, const char* tag, const char* text) {
    return std::fprintf(stderr, "%d %s %s\n", priority, tag, text);
}

void android_set_abort_message(const char* message) {
    std::fprintf(stderr, "abort message: %s\n", message);
}
