# QNRESCUE_SANITIZE: the sanitizers of the whole build, as -fsanitize= takes them.
set(QNRESCUE_SANITIZE "" CACHE STRING "Sanitizers, for example address,undefined or thread")

if(QNRESCUE_SANITIZE)
  add_compile_options(-fsanitize=${QNRESCUE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # GCC takes instrumented code of the standard library for uses of uninitialised values.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  # Asio's fences are none of the thread sanitizer's, and synchronise nothing here.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  add_link_options(-fsanitize=${QNRESCUE_SANITIZE})
endif()
