# Completes the folders that CPack is about to pack: copyright, change log, compressed manual pages.
# Times are that of SOURCE_DATE_EPOCH, if it is set.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP year "%Y" UTC)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} id)
  set(package ${CPACK_DEBIAN_${id}_PACKAGE_NAME})
  set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share)
  set(documents ${tree}/doc/${package})
  configure_file(${CPACK_CAMERA_CTRL_DOCUMENTS}/copyright.in ${documents}/copyright @ONLY)
  execute_process(
    COMMAND awk -v package=${CPACK_PACKAGE_NAME} -v version=${CPACK_PACKAGE_VERSION} -v contact=${CPACK_PACKAGE_CONTACT}
      -v date=${date} -f ${CPACK_CAMERA_CTRL_DOCUMENTS}/changelog.awk ${CPACK_CAMERA_CTRL_CHANGES}
    OUTPUT_FILE ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB pages ${tree}/man/man*/*)
  execute_process(COMMAND gzip -9n ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
