# Warnings for every target of this project; errors where QNRESCUE_WARNINGS_AS_ERRORS is on.
option(QNRESCUE_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  add_compile_options(
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wimplicit-fallthrough
  )
  if(QNRESCUE_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
  endif()
elseif(MSVC)
  add_compile_options(/W4 /utf-8 /permissive-)
  if(QNRESCUE_WARNINGS_AS_ERRORS)
    add_compile_options(/WX)
  endif()
endif()
