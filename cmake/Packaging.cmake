# What is installed, and qnrescue-<version>-win64.zip, which CPack makes of it.
if(NOT WIN32)
  return()
endif()
include(CMakePackageConfigHelpers)

set(package_folder lib/cmake/QNRescue)

install(TARGETS qnrescue qnrescuelib devforwardmin
  EXPORT QNRescueTargets
  RUNTIME DESTINATION bin
  ARCHIVE DESTINATION lib
  INCLUDES DESTINATION include
)
install(TARGETS qnrescue_doctor RUNTIME DESTINATION bin)
install(FILES QNRescue/qnrescue.h platform/CoreFoundation.h DESTINATION include/QNRescue)

install(EXPORT QNRescueTargets NAMESPACE QNRescue:: DESTINATION ${package_folder})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/QNRescueConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES cmake/QNRescueConfig.cmake "${PROJECT_BINARY_DIR}/QNRescueConfigVersion.cmake"
  DESTINATION ${package_folder})

# With the simulator's two DLLs beside it, the program uses simulated devices.
foreach(target
    qnrescue qnrescue_doctor qnrescuelib devforwardmin
    simulator_core_foundation simulator_mobile_device)
  install(PROGRAMS $<TARGET_FILE:${target}> DESTINATION simulator)
endforeach()
install(DIRECTORY simulator/scenarios DESTINATION simulator)

# With this libdevforwardmin, the program records what real devices do.
if(TARGET recorder)
  foreach(target qnrescue qnrescue_doctor qnrescuelib recorder)
    install(PROGRAMS $<TARGET_FILE:${target}> DESTINATION recorder)
  endforeach()
endif()

include(Licenses)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION .)
install(DIRECTORY docs examples DESTINATION . PATTERN __pycache__ EXCLUDE)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME "qnrescue-${PROJECT_VERSION}-win64")
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_QNRESCUE_PYTHON "${Python3_EXECUTABLE}")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/SignExecutables.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PackReproducibly.cmake")
include(CPack)
