# Compile options of this project's own targets. Nothing here reaches the library's users.

add_library(vyn_private_options INTERFACE)
target_compile_options(vyn_private_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wvla
    # Log lines name files as they stand in the project, not as they stand on the build machine.
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
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
    target_compile_options(vyn_private_options INTERFACE
        -fsanitize=${VYN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vyn_private_options INTERFACE -fsanitize=${VYN_SANITIZE})
endif()
