# SPDX-License-Identifier: Apache-2.0

# GTest::gtest and GTest::gtest_main: Debian's, which for another machine than this one are built
# from their source package.

if(CMAKE_CROSSCOMPILING)
    enable_language(C)
    set(BUILD_GMOCK OFF)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
    find_package(GTest REQUIRED)
endif()
include(GoogleTest)
