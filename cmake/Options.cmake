# Flags that every target of the project is built with: warnings are errors, and what ships is hardened.
include(CheckPIESupported)
check_pie_supported()

add_library(orlim_options INTERFACE)
target_include_directories(orlim_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
# Files beyond 2 GiB, inodes beyond 32 bits and dates beyond 2038 exist on 32-bit hosts too: with a time_t of 4 bytes,
# stat() fails for any file that somebody has dated 2040, which would hide a shell from the module. Debian 12 builds its
# 32-bit libraries with that narrow time_t. None is handed across to them: no header of src/agent has one, and of what
# is used, libstdc++'s and spdlog's clocks count in 64 bits of their own and struct tm, OpenSSL's digests, libmnl and
# GoogleTest know none. What stays narrow is inside these libraries: std::filesystem's file_size() and last_write_time()
# fail for such a file, so stat() is asked, and from 2038 on spdlog stamps the log's lines wrongly.
target_compile_definitions(orlim_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(orlim_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  -fstack-protector-strong)
# clang counts changes of sign as conversions; gcc does not in C++.
target_compile_options(orlim_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
target_link_options(orlim_options INTERFACE
  -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,-z,defs -Wl,--as-needed)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # Notes that another release of the compiler passed some arguments of templates otherwise.
  target_compile_options(orlim_options INTERFACE -Wno-psabi)
endif()
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
