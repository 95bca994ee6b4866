# What Windows shows for a program or DLL under "Details", and the manifest of programs. The version
# is that of project().

# qnrescue_version_resource(target description): adds the version resource to the program or DLL.
function(qnrescue_version_resource target description)
  if(NOT WIN32)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  if(type STREQUAL "EXECUTABLE")
    set(file_type VFT_APP)
    set(file "${name}.exe")
  else()
    set(file_type VFT_DLL)
    set(file "${name}.dll")
  endif()
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
endfunction()

# qnrescue_manifest(target): gives the program a manifest that makes UTF-8 its code page and allows
# long paths.
function(qnrescue_manifest target)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  set(manifest "${CMAKE_CURRENT_BINARY_DIR}/${name}.manifest")
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${name}_manifest.rc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/program.manifest.in" "${manifest}" @ONLY)
  file(CONFIGURE OUTPUT "${resource}" CONTENT "1 24 \"${name}.manifest\"\n")
  set_source_files_properties("${resource}" PROPERTIES
    OBJECT_DEPENDS "${manifest}"
    INCLUDE_DIRECTORIES "${CMAKE_CURRENT_BINARY_DIR}"
  )
  target_sources(${target} PRIVATE "${resource}")
endfunction()
