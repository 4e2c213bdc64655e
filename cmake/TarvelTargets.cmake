# What all code of ours is compiled with. Travels by linking, never globally, and privately, so
# that those who embed the library see none of it.
add_library(tarvel_options INTERFACE)
target_compile_options(tarvel_options INTERFACE -Wall -Wextra -Wpedantic
                       $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tarvel_options INTERFACE -Wno-restrict)  # Wrong for "text" + a temporary.
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Files over 2 GiB, and times after 2038. glibc has both since 2.34.
  target_compile_definitions(tarvel_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
# ZO_ASSERT. The same in all targets, since inline functions use it.
if(TARVEL_SANITIZE OR TARVEL_FUZZ)
  target_compile_definitions(tarvel_options INTERFACE TARVEL_ASSERTIONS)
else()
  target_compile_definitions(tarvel_options INTERFACE $<$<CONFIG:Debug>:TARVEL_ASSERTIONS>)
endif()
if(TARVEL_WARNINGS_AS_ERRORS)
  target_compile_options(tarvel_options INTERFACE -Werror)
elseif(NOT PROJECT_IS_TOP_LEVEL)
  # An embedding project's -Wshadow or -Werror is not for these sources.
  target_compile_options(tarvel_options INTERFACE -w)
endif()
if(TARVEL_CLANG_THREAD_SAFETY)
  target_compile_options(tarvel_options INTERFACE -Wthread-safety)
endif()
if(TARVEL_SANITIZE)
  target_compile_options(tarvel_options INTERFACE -fsanitize=${TARVEL_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tarvel_options INTERFACE -fsanitize=${TARVEL_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(tarvel_options INTERFACE -Wno-tsan)  # It says that fences aren't seen.
  endif()
endif()
if(TARVEL_FUZZ)
  target_compile_options(tarvel_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TARVEL_COVERAGE)
  target_compile_options(tarvel_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tarvel_options INTERFACE --coverage)
endif()

# The header refuses a client with another standard library than the library's.
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(_LIBCPP_VERSION version TARVEL_USES_LIBCXX)
if(TARVEL_USES_LIBCXX)
  target_compile_definitions(tarvel_options INTERFACE TARVEL_STDLIB_LIBCXX)
endif()

# A Release build is made for size, since an app ships the library: link-time optimisation drops what
# nobody calls, and relative relocations take a tenth of the room. The objects also hold plain code,
# which the tests and benchmarks link.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
check_cxx_compiler_flag(-Oz TARVEL_COMPILER_HAS_OZ)  # g++ from version 12.
check_linker_flag(CXX "LINKER:-z,pack-relative-relocs" TARVEL_LINKER_PACKS_RELOCATIONS)
add_library(tarvel_small INTERFACE)
target_compile_options(tarvel_small INTERFACE $<$<CONFIG:Release>:-ffunction-sections -fdata-sections>)
target_link_options(tarvel_small INTERFACE $<$<CONFIG:Release>:LINKER:--gc-sections>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT TARVEL_SANITIZE)
  # Without this macro libstdc++ names no closure's type in std::function: 25 KB of names that nobody
  # asks for. The compiler's own RTTI stays.
  target_compile_options(tarvel_small INTERFACE $<$<CONFIG:Release>:-U__cpp_rtti>)
  target_compile_options(tarvel_small INTERFACE $<$<CONFIG:Release>:-flto=auto -ffat-lto-objects>)
  target_link_options(tarvel_small INTERFACE $<$<CONFIG:Release>:-flto=auto>)
endif()
if(TARVEL_PACK_RELOCATIONS AND TARVEL_LINKER_PACKS_RELOCATIONS)
  target_link_options(tarvel_small INTERFACE $<$<CONFIG:Release>:LINKER:-z,pack-relative-relocs>)
endif()

# tarvel_add_subsystem(name SOURCES ... [FAST_SOURCES ...] [LINKS ...] [PRIVATE_LINKS ...])
#
# One static, position-independent library `tarvel_<name>` (alias `tarvel::<name>`) with hidden
# symbols. A Release build optimises FAST_SOURCES for speed, SOURCES for size. LINKS are the lower
# subsystems and packages that its headers use, PRIVATE_LINKS those that only its sources use.
function(tarvel_add_subsystem name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;FAST_SOURCES;LINKS;PRIVATE_LINKS")
  set(target tarvel_${name})
  add_library(${target} STATIC ${arg_SOURCES} ${arg_FAST_SOURCES})
  add_library(tarvel::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/include")
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE
    $<$<CONFIG:Release>:$<IF:$<BOOL:${TARVEL_COMPILER_HAS_OZ}>,-Oz,-Os>>
    $<TARGET_PROPERTY:tarvel_small,INTERFACE_COMPILE_OPTIONS>)
  # -O2 without some of what makes code larger.
  set_source_files_properties(${arg_FAST_SOURCES} PROPERTIES COMPILE_OPTIONS
    "$<$<CONFIG:Release>:-O2;-fno-inline-functions;-fno-align-functions;-fno-align-loops;-fno-align-jumps>")
  target_link_libraries(${target} PUBLIC ${arg_LINKS} PRIVATE ${arg_PRIVATE_LINKS} tarvel_options)
endfunction()

# tarvel_link_hosted_services(target)
#
# Links the environment with all that it hosts. Whole, since nothing names the exported functions,
# nor the services, which announce themselves while they are loaded.
function(tarvel_link_hosted_services target)
  set_property(TARGET ${target} PROPERTY
    LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,tarvel_environment,tarvel_lbs")
  target_link_libraries(${target} PRIVATE
    $<BUILD_INTERFACE:tarvel_lbs> $<BUILD_INTERFACE:tarvel_environment>)
endfunction()
