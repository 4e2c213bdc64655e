# tarvel_deployment: the defaults of the deployment, as "tarvel_deployment_defaults.h". A copy, so
# that the path of the integrator's file stays out of the library. CMake runs again when the file
# has changed.
set(deployment_defaults "${TARVEL_DEPLOYMENT_DEFAULTS}")
if(deployment_defaults STREQUAL "")
  set(deployment_defaults "${PROJECT_SOURCE_DIR}/tarvel/environment/configuration/deployment_defaults.h")
endif()
cmake_path(ABSOLUTE_PATH deployment_defaults BASE_DIRECTORY "${CMAKE_SOURCE_DIR}")
if(NOT EXISTS "${deployment_defaults}" OR IS_DIRECTORY "${deployment_defaults}")
  message(FATAL_ERROR "TARVEL_DEPLOYMENT_DEFAULTS names no file: ${deployment_defaults}")
endif()
configure_file("${deployment_defaults}"
  "${PROJECT_BINARY_DIR}/deployment/tarvel_deployment_defaults.h" COPYONLY NO_SOURCE_PERMISSIONS)
add_library(tarvel_deployment INTERFACE)
target_include_directories(tarvel_deployment INTERFACE "${PROJECT_BINARY_DIR}/deployment")
