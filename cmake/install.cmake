# Installation: libraries, headers, CMake packages, pkg-config files and tools.
include(CMakePackageConfigHelpers)

# The pkg-config files find their prefix from where they lie, so that an installed tree can be moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)

# install_library(<target> <namespace> <header folder>): the library, its headers and what finds it again.
function(install_library target namespace headers)
  install(TARGETS ${target} EXPORT ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
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
if(CAMERA_CTRL_HOST_PLATFORM)
  install_library(ipcam_platform "" platform/include/ipcam)
endif()
