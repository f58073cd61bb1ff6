# SPDX-License-Identifier: Apache-2.0

# find_package(vyncore_vendor) gives the target vyncore::vendor.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/vyncore_vendor-targets.cmake)
