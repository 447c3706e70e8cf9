# vrel_shared_library(NAME SOVERSION [NAMESPACES namespace...] [FUNCTIONS pattern...]
# SOURCES file...): one installed shared library of this project. It exports what its headers mark in
# these C++ namespaces, and C functions that match the patterns; nothing else, in particular nothing
# of the standard library that was compiled into it. It links against nothing by default and refuses
# undefined symbols. Where it is installed it finds the others beside it.
function(vrel_shared_library name soversion)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "NAMESPACES;FUNCTIONS;SOURCES")
  add_library(${name} SHARED ${arg_SOURCES})
  add_library(vreldrgroup::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES VERSION ${soversion}.0.0 SOVERSION ${soversion}
    INSTALL_RPATH "$ORIGIN")
  if(NOT VRELDRGROUP_SANITIZE)
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  target_link_options(${name} PRIVATE -Wl,--as-needed)

  set(exports "")
  foreach(pattern IN LISTS arg_FUNCTIONS)
    string(APPEND exports "    ${pattern};\n")
  endforeach()
  foreach(namespace IN LISTS arg_NAMESPACES)
    string(LENGTH ${namespace} length)
    # Functions and data, const member functions, then tables and names of types and what adjusts
    # `this`, all as the compiler writes them.
    foreach(prefix _ZN _ZNK _ZT[ISV]N _ZTh*_N)
      string(APPEND exports "    ${prefix}${length}${namespace}*;\n")
    endforeach()
  endforeach()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}.exports)
  # Without a version's name: a service may bring a library of the same contract that has none.
  file(CONFIGURE OUTPUT ${script} CONTENT "{\n  global:\n${exports}  local:\n    *;\n};\n")
  target_link_options(${name} PRIVATE -Wl,--version-script=${script})
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${script})

  install(TARGETS ${name} EXPORT vreldrgroupTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()
