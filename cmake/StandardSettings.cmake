# Sets the language level, visibility, output folders and the definitions that every target shares.
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

include_directories("${CMAKE_SOURCE_DIR}")
add_compile_definitions(
  BOOST_DISABLE_CURRENT_LOCATION # exception texts must not name paths of the building machine
  BOOST_ALL_NO_LIB
)
add_compile_options(
  $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.>
)
