# 32-bit ARM with hardware floating point, by Debian's cross compiler and the libraries of tools/armhf_sysroot.py.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_STRIP arm-linux-gnueabihf-strip)

get_filename_component(ORLIM_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf ABSOLUTE)
if(NOT EXISTS ${ORLIM_SYSROOT}/usr)
  message(FATAL_ERROR "${ORLIM_SYSROOT} is missing: run tools/armhf_sysroot.py")
endif()
set(CMAKE_SYSROOT ${ORLIM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ORLIM_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${ORLIM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ORLIM_SYSROOT}/usr/share/pkgconfig)

# Set here, because the machine may not have registered the emulator with its kernel. The option -L would find the
# libraries, but it also redirects / and /etc to the sysroot. Tests name their loader instead.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
