# SPDX-License-Identifier: Apache-2.0

# Builds as CMake does with the NDK: with Clang and its C++ library, against declarations of what a
# device has, and linked with nothing else than that; see ./check.
set(ANDROID ON)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ -isystem ${CMAKE_CURRENT_LIST_DIR}/../android_stubs")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-L$ENV{VYN_FAKE_DEVICE} -Wl,--no-undefined")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,$ENV{VYN_FAKE_DEVICE}")
