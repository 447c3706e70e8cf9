# What is installed beside the libraries: headers, the CMake package, the pkg-config file and the
# database script at its fixed path.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/vreldrgroup DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY host/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vreldrgroup)
install(EXPORT vreldrgroupTargets NAMESPACE vreldrgroup:: DESTINATION ${package_dir})
configure_package_config_file(cmake/vreldrgroupConfig.cmake.in vreldrgroupConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(vreldrgroupConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vreldrgroupConfig.cmake
              ${PROJECT_BINARY_DIR}/vreldrgroupConfigVersion.cmake
        DESTINATION ${package_dir})

# Found from where it stands, so that an installation can be moved or staged.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pc /${pc_dir} /)
configure_file(cmake/vreldrgroup.pc.in vreldrgroup.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vreldrgroup.pc DESTINATION ${pc_dir})

# The library looks for the script here whatever the prefix. Who may not write there can install the
# rest all the same.
set(VRELDRGROUP_SCRIPT_DIR /var/packages/Guestora/target/sbin)
configure_file(cmake/InstallScript.cmake.in InstallScript.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/InstallScript.cmake COMPONENT script)

# Takes away what was installed from this build last, by the manifest of that.
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} VERBATIM)
