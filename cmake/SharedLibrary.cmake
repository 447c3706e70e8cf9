# vrel_shared_library(NAME SOVERSION SOURCES...): one installed shared library of this project.
# It links against nothing by default and refuses undefined symbols. Where it is installed it finds
# the others beside it.
function(vrel_shared_library name soversion)
  add_library(${name} SHARED ${ARGN})
  add_library(vreldrgroup::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES VERSION ${soversion}.0.0 SOVERSION ${soversion}
    INSTALL_RPATH "$ORIGIN")
  if(NOT VRELDRGROUP_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  target_link_options(${name} PRIVATE -Wl,--as-needed)
  install(TARGETS ${name} EXPORT vreldrgroupTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
