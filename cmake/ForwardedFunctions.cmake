# The names that libdevforwardmin forwards, as its module-definition file lists them.
set(QNRESCUE_FORWARDERS "${PROJECT_SOURCE_DIR}/platform/libdevforwardmin/libdevforwardmin.def")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${QNRESCUE_FORWARDERS}")

# qnrescue_forwarded_functions(names file): sets `names` to the names of the functions, and writes
# FORWARDED(name) for each to a file in the current binary folder.
function(qnrescue_forwarded_functions names file)
  file(STRINGS "${QNRESCUE_FORWARDERS}" lines REGEX " = ")
  list(FILTER lines EXCLUDE REGEX " DATA$")
  list(TRANSFORM lines REPLACE "^ *([A-Za-z_]+) = .*" "\\1")
  set(${names} ${lines} PARENT_SCOPE)
  list(TRANSFORM lines REPLACE ".+" "FORWARDED(\\0)\n")
  string(CONCAT content ${lines})
  file(CONFIGURE OUTPUT "${file}" CONTENT "${content}" @ONLY)
endfunction()

# qnrescue_forwarded_targets(targets): sets `targets` to LIBRARY.NAME for each function and variable.
function(qnrescue_forwarded_targets targets)
  file(STRINGS "${QNRESCUE_FORWARDERS}" lines REGEX " = ")
  list(TRANSFORM lines REPLACE "^.* = ([A-Za-z0-9_.]+).*$" "\\1")
  set(${targets} ${lines} PARENT_SCOPE)
endfunction()

# qnrescue_forwarded_data(lines): sets `lines` to the definition file's lines of variables.
function(qnrescue_forwarded_data lines)
  file(STRINGS "${QNRESCUE_FORWARDERS}" data REGEX " DATA$")
  set(${lines} ${data} PARENT_SCOPE)
endfunction()
