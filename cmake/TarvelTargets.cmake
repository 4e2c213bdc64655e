# What all code of ours is compiled with. Travels by linking, never globally, and privately, so
# that those who embed the library see none of it.
add_library(tarvel_options INTERFACE)
target_compile_options(tarvel_options INTERFACE -Wall -Wextra -Wpedantic
                       $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
# ZO_ASSERT. The same in all targets, since inline functions use it.
if(TARVEL_SANITIZE OR TARVEL_FUZZ)
  target_compile_definitions(tarvel_options INTERFACE TARVEL_ASSERTIONS)
else()
  target_compile_definitions(tarvel_options INTERFACE $<$<CONFIG:Debug>:TARVEL_ASSERTIONS>)
endif()
if(TARVEL_WARNINGS_AS_ERRORS)
  target_compile_options(tarvel_options INTERFACE -Werror)
endif()
if(TARVEL_CLANG_THREAD_SAFETY)
  target_compile_options(tarvel_options INTERFACE -Wthread-safety)
endif()
if(TARVEL_SANITIZE)
  target_compile_options(tarvel_options INTERFACE -fsanitize=${TARVEL_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tarvel_options INTERFACE -fsanitize=${TARVEL_SANITIZE})
endif()
if(TARVEL_FUZZ)
  target_compile_options(tarvel_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TARVEL_COVERAGE)
  target_compile_options(tarvel_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tarvel_options INTERFACE --coverage)
endif()

# tarvel_add_subsystem(name SOURCES ... [LINKS ...] [PRIVATE_LINKS ...])
#
# One static, position-independent library `tarvel_<name>` (alias `tarvel::<name>`) with hidden
# symbols. LINKS are the lower subsystems and packages that its headers use, PRIVATE_LINKS those that only its
# sources use.
function(tarvel_add_subsystem name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS;PRIVATE_LINKS")
  set(target tarvel_${name})
  add_library(${target} STATIC ${arg_SOURCES})
  add_library(tarvel::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/include")
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
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
