# Python3::Interpreter, which runs the tests of whole programs and the measurements, and packs the
# ZIP.
if(NOT WIN32 AND NOT QNRESCUE_BENCHMARKS)
  return()
endif()

# Debian's packages of libraries are for its own interpreter.
if(NOT DEFINED Python3_ROOT_DIR)
  set(Python3_ROOT_DIR /usr)
endif()
find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)
