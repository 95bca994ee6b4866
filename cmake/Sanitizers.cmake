# QNRESCUE_SANITIZE: the sanitizers of the whole build, as -fsanitize= takes them.
set(QNRESCUE_SANITIZE "" CACHE STRING "Sanitizers, for example address,undefined or thread")

if(QNRESCUE_SANITIZE)
  target_compile_options(qnrescue_settings INTERFACE
    -fsanitize=${QNRESCUE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # GCC takes instrumented code of the standard library for uses of uninitialised values.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    # The thread sanitizer does not know the fences of Asio, which synchronise nothing here.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>
  )
  target_link_options(qnrescue_settings INTERFACE -fsanitize=${QNRESCUE_SANITIZE})
endif()
