set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(TRIPLET arm-linux-gnueabihf)
set(ROOT armhf)
set(QEMU qemu-arm-static)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # No notes on g++ 6's calling convention.
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
