# Adds qnrescue_warnings, which every target links: the warnings of this project, errors if QNRESCUE_WARNINGS_AS_ERRORS is on.
option(QNRESCUE_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  set(warnings
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wimplicit-fallthrough
    $<$<BOOL:${QNRESCUE_WARNINGS_AS_ERRORS}>:-Werror>
  )
  # GCC 12 reports some assignments of standard strings as overlapping copies.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    list(APPEND warnings -Wno-restrict)
  endif()
elseif(MSVC)
  set(warnings /W4 /utf-8 /permissive- $<$<BOOL:${QNRESCUE_WARNINGS_AS_ERRORS}>:/WX>)
endif()
add_library(qnrescue_warnings INTERFACE)
target_compile_options(qnrescue_warnings INTERFACE "$<$<COMPILE_LANGUAGE:CXX>:${warnings}>")
link_libraries($<BUILD_INTERFACE:qnrescue_warnings>)
