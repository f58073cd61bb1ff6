# SPDX-License-Identifier: Apache-2.0

# Compile options of this project's own targets. Nothing here reaches the library's users.

add_library(vyn_private_options INTERFACE)
target_compile_options(vyn_private_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wvla
    # Log lines name files as they stand in the project, not as they stand on the build machine.
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
# Where off_t has 32 bits by default, files beyond 2 GiB and the entries of some file systems could
# not be read. Nothing in the public headers depends on it.
target_compile_definitions(vyn_private_options INTERFACE _FILE_OFFSET_BITS=64)
if(VYN_WERROR)
    target_compile_options(vyn_private_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(vyn_private_options INTERFACE -Wthread-safety)
endif()
if(NOT VYN_RTTI)
    target_compile_options(vyn_private_options INTERFACE -fno-rtti)
endif()
if(VYN_SANITIZE)
    # Not vptr: it looks at an object through a pipe, so that it takes every object for a wrong one where a
    # test leaves the process without descriptors. What it could find, the address sanitizer finds.
    target_compile_options(vyn_private_options INTERFACE
        -fsanitize=${VYN_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vyn_private_options INTERFACE -fsanitize=${VYN_SANITIZE})
endif()
