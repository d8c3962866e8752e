# Header-only libraries of the tools, as the targets CLI11::CLI11 and nlohmann_json::nlohmann_json.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  return()
endif()

# A cross build takes the same headers from the host, but must not see the host's other headers beside them.
foreach(library "CLI11::CLI11;CLI/CLI.hpp" "nlohmann_json::nlohmann_json;nlohmann/json.hpp")
  list(GET library 0 target)
  list(GET library 1 header)
  if(NOT TARGET ${target})
    cmake_path(GET header PARENT_PATH directory)
    find_path(${directory}_INCLUDE_DIR ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/host-headers/${directory})
    file(CREATE_LINK ${${directory}_INCLUDE_DIR}/${directory}
      ${PROJECT_BINARY_DIR}/host-headers/${directory}/${directory} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED)
    target_include_directories(${target} INTERFACE ${PROJECT_BINARY_DIR}/host-headers/${directory})
  endif()
endforeach()
