# For a build of its own: the Debian packages that cpack makes of its components, by
# scripts/package.sh, and the target uninstall.
# Packages of a build that verifies every https server are called so, and replace the others.
set(flavour "")
if(TARVEL_VERIFY_TLS)
  set(flavour "-verify")
endif()
set(library_package "libtarvel${soversion}")
set(library_name "${library_package}${flavour}")
set(development_name "libtarvel${flavour}-dev")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "tarvel maintainers <maintainers@tarvel.invalid>" CACHE STRING
    "Maintainer field of packages")
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_name})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "It keeps messaging clients reachable when networks, name servers and single
hosts fail: link addresses in rotation, names resolved over HTTPDNS, requests
over lists of URLs. This package has the library.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/package/shlibs;${PROJECT_BINARY_DIR}/package/triggers")
# What the symbols alone don't tell dpkg-shlibdeps.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libcurl4 (>= 7.87)")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libcurl4 (>= 7.87)")
if(TARVEL_PACK_RELOCATIONS AND TARVEL_LINKER_PACKS_RELOCATIONS)
  string(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ", libc6 (>= 2.36)")
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_name})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# Only the real package: the headers' package says whether the library verifies every server.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${library_name} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "This package has the headers, files for CMake and pkg-config, a manual page
and documents.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tarvel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS iproute2)  # For the lab.
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "This package has a command-line client, and LBS and HTTPDNS servers that
fail on request.")

if(TARVEL_VERIFY_TLS)
  set(CPACK_COMPONENTS_ALL library development)
  foreach(component library development)
    string(TOUPPER ${component} upper)
    string(APPEND CPACK_COMPONENT_${upper}_DESCRIPTION "
This build verifies the server of every https request.")
  endforeach()
  foreach(relation PROVIDES CONFLICTS REPLACES)
    set(CPACK_DEBIAN_LIBRARY_PACKAGE_${relation} ${library_package})
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_${relation} libtarvel-dev)
  endforeach()
endif()

# Programs depend on the library by its first name, which the verifying one provides.
set(package_files "${PROJECT_BINARY_DIR}/package")
file(WRITE "${package_files}/shlibs" "libtarvel ${soversion} ${library_package}\n")
file(WRITE "${package_files}/triggers" "activate-noawait ldconfig\n")

# The date is that of the change log, so that the same sources make the same packages.
file(STRINGS "${PROJECT_SOURCE_DIR}/CHANGELOG.md" release REGEX "^## ${PROJECT_VERSION} - ")
string(REGEX REPLACE ".* - " "" release "${release}")
execute_process(COMMAND date --utc --rfc-email --date "${release}"
  OUTPUT_VARIABLE release OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(documents "${package_files}/${package}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/package/copyright" "${documents}/copyright" COPYONLY)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/package/changelog.in" "${documents}/changelog" @ONLY)
  execute_process(COMMAND gzip -9n INPUT_FILE "${documents}/changelog"
    OUTPUT_FILE "${documents}/changelog.Debian.gz" COMMAND_ERROR_IS_FATAL ANY)
  # Not part of a plain installation.
  install(FILES "${documents}/copyright" "${documents}/changelog.Debian.gz"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)

configure_file("${PROJECT_SOURCE_DIR}/cmake/TarvelUninstall.cmake.in"
  "${PROJECT_BINARY_DIR}/uninstall.cmake" @ONLY)
add_custom_target(uninstall COMMAND "${CMAKE_COMMAND}" -P "${PROJECT_BINARY_DIR}/uninstall.cmake" VERBATIM)
