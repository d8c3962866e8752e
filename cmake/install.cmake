# Installation: libraries, headers, CMake packages and pkg-config files. Each library is a component of its own; what
# only building against them needs is the component development.
include(CMakePackageConfigHelpers)
include(cmake/manual_page.cmake)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

# The pkg-config files find their prefix from where they lie, so that an installed tree can be moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)

# install_library(<target> <namespace> <header folder>): the library, its headers and what finds it again.
function(install_library target namespace headers)
  install(TARGETS ${target} EXPORT ${target}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${target} NAMELINK_COMPONENT development)
  install(DIRECTORY ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${target})
  install(EXPORT ${target} FILE ${target}Targets.cmake NAMESPACE "${namespace}" DESTINATION ${package_dir})
  configure_package_config_file(
    cmake/${target}Config.cmake.in ${PROJECT_BINARY_DIR}/${target}Config.cmake INSTALL_DESTINATION ${package_dir})
  write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/${target}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${target}Config.cmake ${PROJECT_BINARY_DIR}/${target}ConfigVersion.cmake
    DESTINATION ${package_dir})

  configure_file(cmake/${target}.pc.in ${PROJECT_BINARY_DIR}/${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

install_library(camera_ctrl camera_ctrl:: include/ipcam)
manual_page(camera_ctrl SECTION 3 EXAMPLE ${PROJECT_SOURCE_DIR}/examples/first_steps.cpp)
if(CAMERA_CTRL_HOST_PLATFORM)
  install_library(ipcam_platform "" platform/include/ipcam)
endif()
