# Checks by script: of the documents, the installed tree and the exported symbols.
# Debian's own, which sees Debian's packages.
find_program(DEBIAN_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
add_test(NAME messages_test COMMAND ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/messages_test.py ${PROJECT_SOURCE_DIR})
add_test(NAME tables_test COMMAND
  ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/tables_test.py ${PROJECT_SOURCE_DIR} $<TARGET_FILE:camera_ctrl>)

# For what users get: a plain build for this machine.
if(NOT CAMERA_CTRL_SANITIZE AND NOT CMAKE_CROSSCOMPILING AND CAMERA_CTRL_TOOLS)
  camera_test_program(timing_count INTERNAL SOURCES timing_count.cpp $<TARGET_OBJECTS:test_operations>)
  add_test(NAME documents_test COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/documents_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  # After a change of what they say: of the registers, the settings, or the time that requests take.
  add_custom_target(update_docs COMMAND ${PROJECT_SOURCE_DIR}/scripts/update-docs ${PROJECT_BINARY_DIR} VERBATIM)
  add_dependencies(update_docs camctl timing_count)
  add_test(NAME install_test COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/install_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
  add_test(NAME camctl_test COMMAND
    ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/camctl_test.py ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  add_test(NAME camsim_test COMMAND
    ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/camsim_test.py ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})

  # changed_library(<name> <source> <text> <other>): the library with one text of one source file replaced, which a replay
  # must notice.
  function(changed_library name source text other)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${source})
    file(READ ${PROJECT_SOURCE_DIR}/${source} content)
    string(REPLACE "${text}" "${other}" changed "${content}")
    if(changed STREQUAL content)
      message(FATAL_ERROR "${source} no longer holds: ${text}")
    endif()
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/changed/${name}/${source} CONTENT "${changed}" @ONLY)
    get_target_property(objects camera_ctrl SOURCES)
    cmake_path(GET source FILENAME file)
    add_library(changed_${name} SHARED
      ${PROJECT_BINARY_DIR}/changed/${name}/${source} "$<FILTER:${objects},EXCLUDE,/${file}>")
    target_include_directories(changed_${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(changed_${name} PRIVATE ipcam_platform Threads::Threads)
    target_link_options(changed_${name} PRIVATE -Wl,-z,nodelete)
    set_target_properties(changed_${name} PROPERTIES OUTPUT_NAME camera_ctrl SOVERSION ${PROJECT_VERSION_MAJOR}
      LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/changed/${name})
  endfunction()
  changed_library(order camera/start_up.cpp
    "  if (gamma(snapshot_.gamma) != 0) return false;\n  if (expcomp(snapshot_.expcomp) != 0) return false;"
    "  if (expcomp(snapshot_.expcomp) != 0) return false;\n  if (gamma(snapshot_.gamma) != 0) return false;")
  changed_library(table dsp/exposure_tables.cpp "{0x0000, 0x2606," "{0x0000, 0x2607,")
  add_test(NAME recorder_test COMMAND
    ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/recorder_test.py ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  add_test(NAME replay_test COMMAND
    ${DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/replay_test.py ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  set_tests_properties(camctl_test camsim_test recorder_test replay_test PROPERTIES TIMEOUT 400
    ENVIRONMENT PYTHONDONTWRITEBYTECODE=1)
endif()
if(NOT CAMERA_CTRL_SANITIZE AND CMAKE_BUILD_TYPE STREQUAL "Release")
  add_test(NAME exported_symbols_test COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-symbols $<TARGET_FILE:camera_ctrl>)
  add_test(NAME exported_layout_test COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-layout $<TARGET_FILE:camera_ctrl>)
  add_test(NAME binaries_test COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/binaries_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
endif()
# The undefined-behaviour sanitizer takes the odd addresses of Thumb functions for misaligned ones in camctl's arguments.
if(CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 4 AND CAMERA_CTRL_TOOLS AND NOT CAMERA_CTRL_SANITIZE)
  add_test(NAME mixed_widths_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/mixed_widths_test.sh
    ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(mixed_widths_test PROPERTIES TIMEOUT 900)  # it may have to build camsim
endif()
