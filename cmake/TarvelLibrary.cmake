# The shared library: all subsystems, of which only the five functions of the public header are
# visible. The version script also hides what dependencies' templates would export.
set(TARVEL_EXPORTS "${PROJECT_SOURCE_DIR}/cmake/tarvel.exports")

# The headers say the version too, and can't ask CMake.
set(version_header "${PROJECT_SOURCE_DIR}/include/tarvel/version.h")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${version_header}")
file(STRINGS "${version_header}" parts
  REGEX "^#define TARVEL_VERSION_(MAJOR|MINOR|PATCH) ")
list(TRANSFORM parts REPLACE "^[^ ]+ [^ ]+ ([0-9]+).*" "\\1")
list(JOIN parts "." version_of_headers)
if(NOT version_of_headers STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "include/tarvel/version.h has ${version_of_headers}, but project() in "
                      "CMakeLists.txt has ${PROJECT_VERSION}. Set both to the same version.")
endif()
# While the major is 0, each minor may break the interface.
set(soversion ${PROJECT_VERSION_MAJOR})
if(PROJECT_VERSION_MAJOR EQUAL 0)
  string(APPEND soversion ".${PROJECT_VERSION_MINOR}")
endif()

add_library(tarvel SHARED)
add_library(tarvel::tarvel ALIAS tarvel)
target_sources(tarvel PRIVATE "${PROJECT_SOURCE_DIR}/include/tarvel/tarvel.h")
set_target_properties(tarvel PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${soversion}
  LINK_DEPENDS "${TARVEL_EXPORTS}")
target_compile_features(tarvel INTERFACE cxx_std_17)
target_compile_definitions(tarvel INTERFACE $<$<BOOL:${TARVEL_USES_LIBCXX}>:TARVEL_STDLIB_LIBCXX>)
target_include_directories(tarvel INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
tarvel_link_hosted_services(tarvel)
target_link_libraries(tarvel PRIVATE $<BUILD_INTERFACE:tarvel_options> $<BUILD_INTERFACE:tarvel_small>)
target_link_options(tarvel PRIVATE
  "LINKER:--version-script=${TARVEL_EXPORTS}"
  "LINKER:--no-undefined-version")
if(NOT TARVEL_SANITIZE)  # A sanitizer's runtime comes with the executable.
  target_link_options(tarvel PRIVATE "LINKER:--no-undefined")
endif()

include(CMakePackageConfigHelpers)
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/tarvel")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/tarvelConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/tarvelConfig.cmake" INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tarvelConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
# Relative, so that an installed tree can be moved.
cmake_path(SET prefix_from_pc "${CMAKE_INSTALL_PREFIX}")
cmake_path(RELATIVE_PATH prefix_from_pc
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" OUTPUT_VARIABLE prefix_from_pc)
configure_file("${PROJECT_SOURCE_DIR}/cmake/tarvel.pc.in" "${PROJECT_BINARY_DIR}/tarvel.pc" @ONLY)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS tarvel EXPORT tarvelTargets LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/tarvel" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT tarvelTargets NAMESPACE tarvel:: DESTINATION "${package_dir}")
install(FILES "${PROJECT_BINARY_DIR}/tarvelConfig.cmake"
              "${PROJECT_BINARY_DIR}/tarvelConfigVersion.cmake" DESTINATION "${package_dir}")
install(FILES "${PROJECT_BINARY_DIR}/tarvel.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT license)
install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/SECURITY.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/" DESTINATION "${CMAKE_INSTALL_DOCDIR}"
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN manual EXCLUDE PATTERN reference EXCLUDE)
