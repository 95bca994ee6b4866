# CPack runs this when it has made the ZIP.
execute_process(
  COMMAND "${CPACK_QNRESCUE_PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/pack_reproducibly.py"
    ${CPACK_PACKAGE_FILES}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "The package could not be made reproducible.")
endif()
