# CPack runs this when it has brought together what it packs.
execute_process(
  COMMAND "${CPACK_QNRESCUE_PYTHON}" -B "${CMAKE_CURRENT_LIST_DIR}/../packaging/sign.py"
    "${CPACK_TEMPORARY_INSTALL_DIRECTORY}"
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "The programs could not be signed.")
endif()
