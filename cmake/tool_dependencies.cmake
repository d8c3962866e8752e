# Header-only libraries of the tools: CLI11::CLI11, nlohmann_json::nlohmann_json and stb_image_write.

# header_only_library(<target> <header>): from the host's folder. A cross build takes the same headers, but must not see
# the host's other headers beside them.
function(header_only_library target header)
  if(TARGET ${target})
    return()
  endif()
  cmake_path(GET header PARENT_PATH directory)
  find_path(${directory}_INCLUDE_DIR ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/host-headers/${directory})
  file(CREATE_LINK ${${directory}_INCLUDE_DIR}/${directory}
    ${PROJECT_BINARY_DIR}/host-headers/${directory}/${directory} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} INTERFACE ${PROJECT_BINARY_DIR}/host-headers/${directory})
endfunction()

if(NOT CMAKE_CROSSCOMPILING)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
endif()
header_only_library(CLI11::CLI11 CLI/CLI.hpp)
header_only_library(nlohmann_json::nlohmann_json nlohmann/json.hpp)
header_only_library(stb_image_write stb/stb_image_write.h)
