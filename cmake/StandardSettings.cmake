# Sets the language level, visibility and output folders; adds qnrescue_settings, which every target
# links: the include folder, definitions and options that all share.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

# Programs and the DLLs that they load are in one folder.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

add_library(qnrescue_settings INTERFACE)
target_include_directories(qnrescue_settings INTERFACE "${CMAKE_SOURCE_DIR}")
target_compile_definitions(qnrescue_settings INTERFACE
  BOOST_DISABLE_CURRENT_LOCATION # exception texts must not name paths of the building machine
  BOOST_ALL_NO_LIB
)
target_compile_options(qnrescue_settings INTERFACE
  $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>
)
link_libraries($<BUILD_INTERFACE:qnrescue_settings>)
