# The notices of what the programs are linked with, which the package has in licenses/. They are the
# files of the packages that the libraries come from: Debian's, MSYS2's and vcpkg's names are known.
set(notice_roots ${CMAKE_FIND_ROOT_PATH} ${CMAKE_PREFIX_PATH} ${CMAKE_SYSTEM_PREFIX_PATH} "")

# qnrescue_install_notice(library pattern...): installs the files that match the first pattern with
# any, below the first folder with any.
function(qnrescue_install_notice library)
  foreach(root IN LISTS notice_roots)
    foreach(pattern IN LISTS ARGN)
      file(GLOB notices LIST_DIRECTORIES FALSE "${root}/${pattern}")
      if(notices)
        install(FILES ${notices} DESTINATION "licenses/${library}")
        return()
      endif()
    endforeach()
  endforeach()
  message(WARNING "The notice of ${library} was not found; licenses/ of the package lacks it.")
endfunction()

qnrescue_install_notice(Boost share/licenses/boost/* share/boost-filesystem/copyright)
qnrescue_install_notice(fmt share/licenses/fmt/* share/fmt/copyright)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  qnrescue_install_notice(GCC
    usr/share/doc/gcc-mingw-w64-base/copyright share/licenses/gcc-libs/*)
  qnrescue_install_notice(mingw-w64
    usr/share/doc/mingw-w64-x86-64-dev/copyright share/licenses/crt/*)
  qnrescue_install_notice(winpthreads
    usr/share/doc/mingw-w64-x86-64-dev/copyright share/licenses/*winpthread*/*)
endif()
