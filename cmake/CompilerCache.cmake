# Compiles through ccache where it is installed, unless another launcher was chosen.
option(QNRESCUE_COMPILER_CACHE "Use ccache where it is installed" ON)
find_program(QNRESCUE_CCACHE ccache)
mark_as_advanced(QNRESCUE_CCACHE)
if(QNRESCUE_COMPILER_CACHE AND QNRESCUE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${QNRESCUE_CCACHE}")
endif()
