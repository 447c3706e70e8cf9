# Language, warnings and sanitizers, the same for everything that is compiled here.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)  # for clang-tidy
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wnon-virtual-dtor -Wold-style-cast)
if(VRELDRGROUP_WERROR)
  add_compile_options(-Werror)
endif()

# Log lines carry the source unit and the function, never a path of the machine that built them.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.")

if(VRELDRGROUP_SANITIZE)
  add_compile_options(-fsanitize=${VRELDRGROUP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VRELDRGROUP_SANITIZE})
else()
  add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

# Compiling once what most files include saves a third of the time. Not everywhere, so that a header
# that some file forgets to include is missed where this is off.
option(VRELDRGROUP_PCH "Precompile the headers that most files have in common" OFF)
function(vrel_precompile target)
  if(VRELDRGROUP_PCH)
    target_precompile_headers(${target} PRIVATE
      <json/value.h> <algorithm> <filesystem> <map> <memory> <set> <string> <vector>)
  endif()
endfunction()
