# SPDX-License-Identifier: Apache-2.0

# vyn_liblog: the system's log library. On a device it comes with the NDK; Debian keeps it in
# folders of its own, which need a run path.

add_library(vyn_liblog INTERFACE)
if(ANDROID)
    target_link_libraries(vyn_liblog INTERFACE log)
else()
    find_path(VYN_LIBLOG_INCLUDE android/log.h PATH_SUFFIXES android REQUIRED)
    find_library(VYN_LIBLOG log PATH_SUFFIXES android REQUIRED)
    target_include_directories(vyn_liblog SYSTEM INTERFACE ${VYN_LIBLOG_INCLUDE})
    # Behind the C++ library: Debian's liblog has parts of it in itself (std::string's growing) that were
    # compiled without exceptions. Before it they would be everybody's, and on ARM, where a function
    # without an unwind table ends the process, no program would bear a want of memory there.
    target_link_libraries(vyn_liblog INTERFACE stdc++ ${VYN_LIBLOG})
endif()
