# The headers of the standard library take most of the compile time of a source. Precompiling them saves two fifths of
# it. Packages and clang builds do not use them, so that a missing include shows.
option(ORLIM_PRECOMPILE "Precompile the headers of the standard library" ON)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(ORLIM_PRECOMPILE OFF)
endif()

set(ORLIM_PRECOMPILED_HEADERS
  <algorithm> <array> <atomic> <cerrno> <chrono> <condition_variable> <cstdint> <cstring> <filesystem> <functional>
  <map> <memory> <mutex> <optional> <set> <sstream> <string> <string_view> <thread> <unordered_map> <utility> <vector>)

# gcc 12 does not treat precompiled headers as system headers and falsely warns about accesses past short strings. The
# address sanitizer finds real ones.
set(ORLIM_FALSE_ALARMS)
if(ORLIM_PRECOMPILE)
  set(ORLIM_FALSE_ALARMS -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
endif()

# Targets with the same options share them: orlim_precompiled or, for hidden symbols, orlim_precompiled_hidden.
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
