# The Debian packages that scripts/package builds: one for each component of cmake/install.cmake.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libvyncore_vendor developers <libvyncore-vendor@localhost>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# What tells packages of services which package they depend on.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENTS_ALL runtime development)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvyncore-vendor${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvyncore-vendor-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "The headers, and what CMake and pkg-config need to find the library.")

include(CPack)
