// SPDX-License-Identifier: Apache-2.0

#include "common/xml_names.h"

#include <vyn/logging.h>

#include <cstring>

namespace vyn::xml_names {

bool isReadable(const char* name, const char* ends) {
    if (name[0] != '\0' && name[0] != '!' && std::strpbrk(name, ends) == nullptr) return true;
    VYN_LOG_ERROR << "XML name \"" << name
                  << "\" can not be read again, what it stands for is not written.";
    return false;
}

}  // namespace vyn::xml_names
