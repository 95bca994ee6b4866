# The tests that run a command of the repository, beside those of the builds. CTest reads this file:
# scripts/test sets `presets`, the builds, `processors`, how many there are, and `full`, whether it is
# the full run.
cmake_minimum_required(VERSION 3.25)
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH repository)
set(scripts "${repository}/scripts")
set(tests "${repository}/tests")
set(python "${repository}/build/python/venv/bin/python" -B)

# add_command(name [FULL] [MUST_FAIL] [SETS_UP] [PROCESSORS n] [TIMEOUT seconds] [RESOURCE_LOCK name]
# [COST n] [NEEDS name...] RUN word...): adds a test that runs a command in the folder of the
# repository. FULL: in the full run only. MUST_FAIL: the command has to fail, or it could not report
# what is wrong. SETS_UP: others need what it leaves behind. The rest are properties of CTest.
function(add_command name)
  cmake_parse_arguments(PARSE_ARGV 1 command
    "FULL;MUST_FAIL;SETS_UP" "PROCESSORS;TIMEOUT;RESOURCE_LOCK;COST" "NEEDS;RUN")
  add_test(${name} ${command_RUN})
  set(properties WORKING_DIRECTORY "${repository}")
  if(command_FULL)
    list(APPEND properties LABELS full)
  endif()
  if(command_MUST_FAIL)
    list(APPEND properties WILL_FAIL TRUE)
  endif()
  if(command_SETS_UP)
    list(APPEND properties FIXTURES_SETUP ${name})
  endif()
  foreach(property PROCESSORS TIMEOUT RESOURCE_LOCK COST)
    if(DEFINED command_${property})
      list(APPEND properties ${property} ${command_${property}})
    endif()
  endforeach()
  set_tests_properties(${name} PROPERTIES ${properties} FIXTURES_REQUIRED "${command_NEEDS}")
endfunction()

subdirs(${presets})

add_command(format RUN "${scripts}/check-format")
add_command(unit_test_names RUN python3 -B "${tests}/layout/test_unit_tests.py")
add_command(names_without_affixes RUN python3 -B "${tests}/layout/test_names.py")
add_command(architecture RUN python3 -B "${tests}/architecture/test_architecture.py")
add_command(mutate FULL RUN python3 -B "${tests}/mutants/test_mutate.py")

# These use every processor, one after the other, and give way to the tests beside them.
set(background COST 100 PROCESSORS ${processors} TIMEOUT 7200 RESOURCE_LOCK background)
add_command(static_analysis FULL ${background}
  RUN nice "${scripts}/tidy" QNRescue doctor launcher platform recorder support)
add_command(static_analysis_of_simulator FULL ${background}
  RUN nice "${scripts}/tidy" --quick simulator)
add_command(names FULL ${background} RUN nice "${scripts}/tidy" --names
  benchmarks tests/end_to_end tests/fuzz tests/stress tests/unit)
add_command(fuzz FULL ${background} RUN nice "${scripts}/fuzz" 15)

# The Python package
add_command(python_environment SETS_UP COST 100 RUN "${scripts}/python-environment")
add_command(node_modules FULL SETS_UP RUN "${scripts}/node-modules")
add_command(python_types FULL NEEDS python_environment RUN "${scripts}/check-types")
add_command(python_types_by_pyright FULL NEEDS python_environment node_modules
  RUN "${scripts}/check-types" --pyright)
add_command(bench_day FULL NEEDS python_environment PROCESSORS ${processors} TIMEOUT 900
  RUN ${python} "${tests}/bench_day/day.py" --devices 48
  -- "${scripts}/wine" "${repository}/build/windows/bin/qnrescue.exe")
add_command(fleet_day FULL NEEDS python_environment PROCESSORS ${processors} TIMEOUT 900
  RUN "${scripts}/fleet-day" --short)
add_command(fleet_measurement FULL NEEDS python_environment PROCESSORS ${processors} TIMEOUT 900
  RUN ${python} "${repository}/benchmarks/fleet.py"
  --stations 3 --devices 2 --reports 3 --idle 1 -- "${repository}/build/benchmark/bin/qnrescue")

# The files of its tests that take long are tests of CTest, so that they run side by side; the others
# are one, since starting pytest takes longer than most of them.
set(long aio bench_cli bench_findings bench_watching desk fleet_bridge hostile_circumstances
  screen_broker_source screen_journal_source screen_server steps_file supervisor tool)
set(marks -m "not full")
if(full)
  set(marks)
endif()
set(others)
file(GLOB files "${repository}/python/tests/test_*.py")
foreach(file IN LISTS files)
  string(REGEX REPLACE "^.*/test_|\\.py$" "" name "${file}")
  file(STRINGS "${file}" of_the_full_run REGEX "^pytestmark = pytest.mark.full")
  if(of_the_full_run)
    add_command(python.${name} FULL NEEDS python_environment node_modules
      RUN "${scripts}/test-python" "${file}")
  elseif(name IN_LIST long)
    add_command(python.${name} NEEDS python_environment
      RUN "${scripts}/test-python" ${marks} "${file}")
  else()
    list(APPEND others "${file}")
  endif()
endforeach()
add_command(python.others NEEDS python_environment RUN "${scripts}/test-python" ${marks} ${others})
# The longest begin first.
set_tests_properties(python.bench_watching python.supervisor python.bench_cli python.others
  PROPERTIES COST 100)

# Those that have to fail
add_command(must_fail_format MUST_FAIL RUN "${tests}/must_fail/format")
add_command(must_fail_wine MUST_FAIL RUN "${scripts}/wine" /bin/true)
add_command(must_fail_python_format MUST_FAIL RUN "${tests}/must_fail/python_format")
add_command(must_fail_python_test MUST_FAIL NEEDS python_environment
  RUN "${scripts}/test-python" tests/must_fail/python/test_failure.py)
add_command(must_fail_python_no_test MUST_FAIL NEEDS python_environment
  RUN "${scripts}/test-python" tests/must_fail/python/wrong_type.py)
add_command(must_fail_python_types FULL MUST_FAIL NEEDS python_environment
  RUN "${scripts}/check-types" tests/must_fail/python/wrong_type.py)
add_command(must_fail_python_types_by_pyright FULL MUST_FAIL NEEDS python_environment node_modules
  RUN "${scripts}/check-types" --pyright tests/must_fail/python/wrong_type.py)
add_command(must_fail_clang_tidy FULL MUST_FAIL RESOURCE_LOCK background
  RUN "${scripts}/tidy" tests/must_fail/clang_tidy)
add_command(must_fail_clang_tidy_windows FULL MUST_FAIL RESOURCE_LOCK background
  RUN "${scripts}/tidy" tests/must_fail/windows)
add_command(must_fail_naming FULL MUST_FAIL RESOURCE_LOCK background
  RUN "${scripts}/tidy" --names tests/must_fail/naming)
add_command(must_fail_cppcheck FULL MUST_FAIL RESOURCE_LOCK background
  RUN "${scripts}/tidy" tests/must_fail/cppcheck)
add_command(must_fail_fuzz FULL MUST_FAIL RESOURCE_LOCK background RUN "${scripts}/fuzz" 5 must_fail)
add_command(must_fail_fuzz_in_python FULL MUST_FAIL RESOURCE_LOCK background
  RUN "${scripts}/fuzz" 5 must_fail_in_python)
