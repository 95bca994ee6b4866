# QNRESCUE_SANITIZE: the sanitizers for the whole build, as in -fsanitize=.
set(QNRESCUE_SANITIZE "" CACHE STRING "Sanitizers, for example address,undefined or thread")

if(QNRESCUE_SANITIZE)
  add_compile_options(-fsanitize=${QNRESCUE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # GCC warns of uninitialised values in instrumented code of the standard library.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  # The thread sanitizer does not know Asio's fences; nothing here depends on them.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  add_link_options(-fsanitize=${QNRESCUE_SANITIZE})
endif()
