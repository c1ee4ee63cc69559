# Flags that every target of the project is built with: warnings are errors, and what ships is hardened.
include(CheckPIESupported)
check_pie_supported()

add_library(orlim_options INTERFACE)
target_include_directories(orlim_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
# Files beyond 2 GiB and inodes beyond 32 bits exist on 32-bit hosts too.
target_compile_definitions(orlim_options INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(orlim_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  -fstack-protector-strong)
# clang counts changes of sign as conversions; gcc does not in C++.
target_compile_options(orlim_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
target_link_options(orlim_options INTERFACE
  -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,-z,defs -Wl,--as-needed)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i.86")
  target_compile_options(orlim_options INTERFACE -fcf-protection)
endif()

if(ORLIM_BUILD_FUZZ)
  target_compile_options(orlim_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(ORLIM_SANITIZE)
  target_compile_options(orlim_options INTERFACE
    -fsanitize=${ORLIM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(orlim_options INTERFACE -fsanitize=${ORLIM_SANITIZE})
else()
  # Fortify needs an optimising build, and the sanitizers check the same and more.
  target_compile_options(orlim_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
