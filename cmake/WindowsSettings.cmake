# Sets the Windows version, the character set and how programs and DLLs are linked.
if(NOT WIN32)
  return()
endif()
enable_language(RC)

target_compile_definitions(qnrescue_settings INTERFACE
  _WIN32_WINNT=0x0A00 WINVER=0x0A00 UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_link_options(qnrescue_settings INTERFACE
    -static # no DLL of the compiler is needed
    -Wl,--no-insert-timestamp # the same sources give the same file
    -Wl,--dynamicbase,--high-entropy-va,--nxcompat
    -Wl,--file-alignment,4096 # Wine maps such files and copies all others into memory
    $<$<CONFIG:Release>:-s>
  )
elseif(MSVC)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
  # The program's manifest is a resource; one from the linker would conflict with it.
  target_link_options(qnrescue_settings INTERFACE /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /MANIFEST:NO)
endif()
