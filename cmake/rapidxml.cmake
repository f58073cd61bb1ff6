# SPDX-License-Identifier: Apache-2.0

# vyn_rapidxml: the XML parser, headers only. Nothing of it shows in the public headers, so users of
# the library do not need it.

find_path(VYN_RAPIDXML_INCLUDE rapidxml/rapidxml_print.hpp REQUIRED)
add_library(vyn_rapidxml INTERFACE)
target_include_directories(vyn_rapidxml SYSTEM INTERFACE ${VYN_RAPIDXML_INCLUDE})
