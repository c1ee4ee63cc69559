# 32-bit ARM with hardware floating point: Debian's cross compiler, and the libraries of tools/armhf_sysroot.py.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_STRIP arm-linux-gnueabihf-strip)

get_filename_component(ORLIM_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf ABSOLUTE)
if(NOT EXISTS ${ORLIM_SYSROOT}/usr)
  message(FATAL_ERROR "${ORLIM_SYSROOT} is not there: tools/armhf_sysroot.py makes it")
endif()
set(CMAKE_SYSROOT ${ORLIM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ORLIM_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${ORLIM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ORLIM_SYSROOT}/usr/share/pkgconfig)

# Named here: a machine need not have told its kernel to start foreign programs by it. Its option -L, which would find the
# libraries, would also lead a program that asks for / or /etc into the sysroot; tests name their loader instead.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
