# The standard library's headers take most of the time that a source takes to compile. Reading them once saves two
# fifths of it. Packages and clang compile without, so that no source lacks an include of its own.
option(ORLIM_PRECOMPILE "Precompile the headers of the standard library" ON)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(ORLIM_PRECOMPILE OFF)
endif()

set(ORLIM_PRECOMPILED_HEADERS
  <algorithm> <array> <atomic> <cerrno> <chrono> <condition_variable> <cstdint> <cstring> <filesystem> <functional>
  <map> <memory> <mutex> <optional> <set> <sstream> <string> <string_view> <thread> <unordered_map> <utility> <vector>)

# gcc 12 no longer takes what is read that way for a system's header, and sees accesses past short strings in it that
# there are not; the address sanitizer sees real ones.
set(ORLIM_FALSE_ALARMS)
if(ORLIM_PRECOMPILE)
  set(ORLIM_FALSE_ALARMS -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
endif()

# Code with the same options shares them: orlim_precompiled or, for hidden symbols, orlim_precompiled_hidden.
if(ORLIM_PRECOMPILE)
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled.cpp "")
  foreach(name orlim_precompiled orlim_precompiled_hidden)
    add_library(${name} OBJECT ${PROJECT_BINARY_DIR}/precompiled.cpp)
    target_link_libraries(${name} PRIVATE orlim_options)
    target_precompile_headers(${name} PRIVATE ${ORLIM_PRECOMPILED_HEADERS})
  endforeach()
  target_compile_options(orlim_precompiled_hidden PRIVATE -fvisibility=hidden)
endif()

# orlim_precompile(TARGET HOLDER): the target, a library, uses the headers of the holder.
function(orlim_precompile target holder)
  if(ORLIM_PRECOMPILE)
    target_compile_options(${target} PRIVATE ${ORLIM_FALSE_ALARMS})
    target_precompile_headers(${target} REUSE_FROM ${holder})
  endif()
endfunction()
