# Flags of all targets: warnings are errors, and release builds are hardened.
include(CheckPIESupported)
check_pie_supported()

add_library(orlim_options INTERFACE)
target_include_directories(orlim_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
# 32-bit hosts also have files beyond 2 GiB, inodes beyond 32 bits and dates beyond 2038. With a 4-byte time_t, stat()
# fails for a file that somebody has dated 2040, which would hide a shell from the module. Debian 12 builds its 32-bit
# libraries with that narrow time_t, so no time_t may cross the border to them. None does: the headers of src/agent have
# none, the clocks of libstdc++ and spdlog count in 64 bits, and struct tm, OpenSSL's digests, libmnl and GoogleTest
# have none. Inside these libraries time_t stays narrow: file_size() and last_write_time() of std::filesystem fail for
# such a file, so the code uses stat(), and from 2038 on spdlog prints wrong times in the log.
target_compile_definitions(orlim_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(orlim_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  -fstack-protector-strong)
# In C++, clang warns about sign conversions with -Wconversion; gcc does not.
target_compile_options(orlim_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)
target_link_options(orlim_options INTERFACE
  -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,-z,defs -Wl,--as-needed)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # Notes that an older compiler passed some template arguments in another way.
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
  # Fortify needs optimisation. The sanitizers check more than it does.
  target_compile_options(orlim_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
