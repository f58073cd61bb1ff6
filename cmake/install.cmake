# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` puts in place: the component runtime is what programs run with, the
# component development what they are built with. No file names the folder it is installed in, so
# the whole may be moved.
include(CMakePackageConfigHelpers)

install(TARGETS vyncore_vendor EXPORT vyncore_vendor
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime
        NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vyn
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/vyncore_vendor)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vyncore_vendor-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(EXPORT vyncore_vendor
    FILE vyncore_vendor-targets.cmake
    NAMESPACE vyncore::
    DESTINATION ${package_folder}
    COMPONENT development)
install(FILES
    ${PROJECT_SOURCE_DIR}/cmake/vyncore_vendor-config.cmake
    ${PROJECT_BINARY_DIR}/vyncore_vendor-config-version.cmake
    DESTINATION ${package_folder}
    COMPONENT development)

set(pc_folder ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${pc_folder}
    OUTPUT_VARIABLE VYN_PC_PREFIX)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
    OUTPUT_VARIABLE VYN_PC_INCLUDEDIR)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
    OUTPUT_VARIABLE VYN_PC_LIBDIR)
configure_file(cmake/vyncore_vendor.pc.in vyncore_vendor.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vyncore_vendor.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
