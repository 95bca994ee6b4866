# Finds Python3::Interpreter, which runs tests and benchmarks, and packs the ZIP.
# Debian's packages of Python libraries are for Debian's interpreter.
if(NOT DEFINED Python3_ROOT_DIR)
  set(Python3_ROOT_DIR /usr)
endif()
find_package(Python3 3.9 REQUIRED COMPONENTS Interpreter)
