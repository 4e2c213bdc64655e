# Debian's cross compiler for TRIPLET, with the libraries of the root that scripts/port-root.sh makes.
# Programs of the target run under the emulator QEMU. The file of an architecture includes this one.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++)

set(CMAKE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/roots/${ROOT}")
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS "${CMAKE_SYSROOT}")
  message(FATAL_ERROR "${CMAKE_SYSROOT} is missing. Make it with scripts/port-root.sh ${ROOT}.")
endif()
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_SYSROOT}/usr/lib/${TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

set(CMAKE_CROSSCOMPILING_EMULATOR "${QEMU};-L;${CMAKE_SYSROOT}")
set(TARVEL_LEFT_OUT_TESTS "${CMAKE_CURRENT_LIST_DIR}/left_out_under_qemu.cmake")
