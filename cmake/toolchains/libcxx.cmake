# clang++ of this machine with the libc++ of the root that scripts/port-root.sh makes.
set(CMAKE_C_COMPILER clang-19)  # GoogleTest asks for one.
set(CMAKE_CXX_COMPILER clang++-19)

set(LIBCXX "${CMAKE_CURRENT_LIST_DIR}/../../build/roots/libcxx/usr/lib/llvm-19")
cmake_path(NORMAL_PATH LIBCXX)
if(NOT EXISTS "${LIBCXX}")
  message(FATAL_ERROR "${LIBCXX} is missing. Make it with scripts/port-root.sh libcxx.")
endif()
# The tests use std::jthread, which is experimental.
set(CMAKE_CXX_FLAGS_INIT "-stdlib++-isystem ${LIBCXX}/include/c++/v1 -fexperimental-library")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-stdlib=libc++ -L${LIBCXX}/lib -Wl,-rpath,${LIBCXX}/lib")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
