# How tests are named and run. QNRESCUE_TEST_PREFIX names the build in a run of several builds.
option(BUILD_TESTING "Build the tests" ON)
set(QNRESCUE_TEST_PREFIX "" CACHE STRING "What the name of every test starts with")

# What only the full run of the tests needs, beside all: `cmake --build … --target all full`.
add_custom_target(full)

# Compiles tests and their helpers fast: without optimisation, and without the sanitizer of undefined
# behaviour, which takes half of their time and is for what they test. Its options come after those
# that all targets have.
add_library(qnrescue_test_settings INTERFACE)
target_compile_options(qnrescue_test_settings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-O0>
  # It holds a class from another file that has a base in an unnamed namespace to be a mistake.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>
)
if(QNRESCUE_SANITIZE MATCHES "undefined")
  target_compile_options(qnrescue_test_settings INTERFACE -fno-sanitize=undefined)
endif()

# qnrescue_label_tests(label test...): adds a label: `full` for what only the full run has, others
# for the presets of CTest.
function(qnrescue_label_tests label)
  list(TRANSFORM ARGN PREPEND "${QNRESCUE_TEST_PREFIX}" OUTPUT_VARIABLE names)
  set_property(TEST ${names} APPEND PROPERTY LABELS ${label})
endfunction()

# qnrescue_stress_tests(test...): labels tests that run longer where the environment asks for it.
function(qnrescue_stress_tests)
  qnrescue_label_tests(stress ${ARGN})
  list(TRANSFORM ARGN PREPEND "${QNRESCUE_TEST_PREFIX}" OUTPUT_VARIABLE names)
  set_property(TEST ${names} PROPERTY TIMEOUT 3600)
endfunction()

# The sanitizers print a stack for each finding, with the names that the symbolizer knows.
find_program(QNRESCUE_SYMBOLIZER NAMES llvm-symbolizer-16 llvm-symbolizer)
mark_as_advanced(QNRESCUE_SYMBOLIZER)
set(QNRESCUE_SANITIZER_ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1")
set(thread_options "second_deadlock_stack=1")
if(QNRESCUE_SYMBOLIZER)
  list(APPEND QNRESCUE_SANITIZER_ENVIRONMENT "ASAN_SYMBOLIZER_PATH=${QNRESCUE_SYMBOLIZER}")
  string(APPEND thread_options ":external_symbolizer_path=${QNRESCUE_SYMBOLIZER}")
endif()
list(APPEND QNRESCUE_SANITIZER_ENVIRONMENT "TSAN_OPTIONS=${thread_options}")

# qnrescue_unit_test(name [PORTABLE] [SINGLE_THREADED] SOURCES file... LINK library...): adds a
# GoogleTest program as one test of CTest (starting Wine once for each case would take most of the
# time). PORTABLE: what is tested is the same on all systems, so that only the full run has it for
# Windows too. SINGLE_THREADED: the build with the thread sanitizer leaves it out.
function(qnrescue_unit_test name)
  cmake_parse_arguments(PARSE_ARGV 1 unit "PORTABLE;SINGLE_THREADED" "" "SOURCES;LINK")
  if(unit_SINGLE_THREADED AND QNRESCUE_SANITIZE MATCHES "thread")
    return()
  endif()
  add_executable(${name} ${unit_SOURCES})
  target_link_libraries(${name} PRIVATE
    qnrescue_test_settings ${unit_LINK} GTest::gtest_main Threads::Threads)
  add_test(NAME "${QNRESCUE_TEST_PREFIX}${name}" COMMAND ${name} --gtest_brief=1)
  set_tests_properties("${QNRESCUE_TEST_PREFIX}${name}" PROPERTIES
    TIMEOUT 300
    FAIL_REGULAR_EXPRESSION " 0 tests from 0 test suites"
    ENVIRONMENT "${QNRESCUE_SANITIZER_ENVIRONMENT}"
  )
  if(unit_PORTABLE AND CMAKE_CROSSCOMPILING)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    add_dependencies(full ${name})
    qnrescue_label_tests(full ${name})
  endif()
endfunction()

# qnrescue_long_unit_test(name program variable...): runs the program of a unit test once more in the
# full run, with these variables in its environment.
function(qnrescue_long_unit_test name program)
  add_test(NAME "${QNRESCUE_TEST_PREFIX}${name}" COMMAND ${program} --gtest_brief=1)
  set_tests_properties("${QNRESCUE_TEST_PREFIX}${name}" PROPERTIES
    TIMEOUT 1500
    ENVIRONMENT "${QNRESCUE_SANITIZER_ENVIRONMENT};${ARGN}"
  )
  qnrescue_label_tests(full ${name})
endfunction()

# The interpreter is named by its path: CMake would run an imported target in the emulator.

# qnrescue_end_to_end_test(file): adds a Python unittest module that runs the built programs.
# QNRESCUE_BIN is their folder, QNRESCUE_RUNNER the command that runs them (empty on Windows).
function(qnrescue_end_to_end_test file)
  cmake_path(GET file STEM stem)
  set(name "${QNRESCUE_TEST_PREFIX}end_to_end.${stem}")
  add_test(NAME "${name}" COMMAND "${Python3_EXECUTABLE}" -m unittest "${stem}"
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
  set_tests_properties("${name}" PROPERTIES
    TIMEOUT 600
    FAIL_REGULAR_EXPRESSION "Ran 0 tests"
    ENVIRONMENT "QNRESCUE_BIN=${CMAKE_RUNTIME_OUTPUT_DIRECTORY};QNRESCUE_RUNNER=${CMAKE_CROSSCOMPILING_EMULATOR};PYTHONDONTWRITEBYTECODE=1"
  )
endfunction()
