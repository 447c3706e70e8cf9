# What the project needs from the system; docs/dependencies.md says what for.

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
if(VRELDRGROUP_HOST STREQUAL "standalone")
  pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
  pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
  pkg_check_modules(XXHASH REQUIRED IMPORTED_TARGET libxxhash>=0.8)
  find_library(BTRFSUTIL_LIBRARY btrfsutil REQUIRED)
  find_path(BTRFSUTIL_INCLUDE_DIR btrfsutil.h REQUIRED)
  add_library(btrfsutil SHARED IMPORTED)
  set_target_properties(btrfsutil PROPERTIES
    IMPORTED_LOCATION ${BTRFSUTIL_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${BTRFSUTIL_INCLUDE_DIR})
endif()
