# QNRESCUE_SANITIZE: the sanitizers of the whole build, as -fsanitize= takes them.
set(QNRESCUE_SANITIZE "" CACHE STRING "Sanitizers, for example address,undefined or thread")

if(QNRESCUE_SANITIZE)
  target_compile_options(qnrescue_settings INTERFACE
    -fsanitize=${QNRESCUE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
  )
  target_link_options(qnrescue_settings INTERFACE -fsanitize=${QNRESCUE_SANITIZE})
endif()
