# Debian packages, one per component of the installation: `cpack -G DEB`, or scripts/package for the whole way.
set(CPACK_PACKAGE_NAME camera-ctrl)
set(CPACK_PACKAGE_CONTACT "Camera firmware team <camera-firmware@example.com>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE camera-ctrl)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Of the target's kind in a cross build.
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})

# What the programs and libraries need of the system. dpkg-shlibdeps would name the cross compiler's packages of a cross
# build, so there the versions of Debian 12, which it is built with, are asked for.
if(CMAKE_CROSSCOMPILING)
  if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  endif()
  set(system_libraries "libc6 (>= 2.36), libgcc-s1 (>= 12), libstdc++6 (>= 12)")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
  set(system_libraries "")
endif()

# debian_package(<component> <package> SECTION <section> [SYSTEM <dependencies>] [NEEDS <component>...]
#                DESCRIPTION <text>)
set(CPACK_COMPONENTS_ALL "")
function(debian_package component package)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "SECTION;SYSTEM;DESCRIPTION" "NEEDS")
  string(TOUPPER ${component} id)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_PACKAGE_DEPENDS "${arg_SYSTEM}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${id}_DESCRIPTION "${arg_DESCRIPTION}" PARENT_SCOPE)
  set(CPACK_COMPONENT_${id}_DEPENDS ${arg_NEEDS} PARENT_SCOPE)
endfunction()

set(library_control ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(platform_component "")
if(CAMERA_CTRL_HOST_PLATFORM)
  set(platform_component ipcam_platform)
  debian_package(ipcam_platform libipcam-platform${PROJECT_VERSION_MAJOR} SECTION libs SYSTEM "${system_libraries}"
    DESCRIPTION "host versions of the camera's own libraries
What the camera image-control library needs of a network camera's firmware, for
workstations. A camera has libraries of its own in its place.")
  set(CPACK_DEBIAN_IPCAM_PLATFORM_PACKAGE_CONTROL_EXTRA ${library_control})
endif()
debian_package(camera_ctrl libcamera-ctrl${PROJECT_VERSION_MAJOR} SECTION libs SYSTEM "${system_libraries}"
  NEEDS ${platform_component}
  DESCRIPTION "image control of a network camera, shared library
Sets white balance, exposure, gain, iris, colour, sharpness, gamma, day/night
and binning of a network camera. Server programs ask in the camera's terms; one
control thread turns that into writes of the image processor's registers.")
set(CPACK_DEBIAN_CAMERA_CTRL_PACKAGE_CONTROL_EXTRA ${library_control})
debian_package(development libcamera-ctrl-dev SECTION libdevel NEEDS camera_ctrl ${platform_component}
  DESCRIPTION "image control of a network camera, development files
Headers, CMake packages, pkg-config files and the manual page of the camera
image-control library and of the host versions of the camera's own libraries.")
if(CAMERA_CTRL_TOOLS)
  debian_package(tools camera-ctrl-tools SECTION utils SYSTEM "${system_libraries}"
    NEEDS camera_ctrl ${platform_component}
    DESCRIPTION "image control of a network camera, tool and simulated camera
The command-line tool camctl sets, reads and examines the camera's image
control, and records what server programs ask of it. The simulated camera
camsim takes the camera's side on workstations.")
endif()

# Copyright, change log and compressed manual pages, put into the packages only.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/documents.cmake)
set(CPACK_CAMERA_CTRL_DOCUMENTS ${PROJECT_SOURCE_DIR}/cmake/debian)
set(CPACK_CAMERA_CTRL_CHANGES ${PROJECT_SOURCE_DIR}/CHANGELOG.md)

include(CPack)
