# What the programs are linked with: the notices, which the package has in licenses/, and the list
# for the bill of materials. The notices are files of the packages that the libraries come from:
# Debian's, MSYS2's and vcpkg's names are known.
set(notice_roots ${CMAKE_FIND_ROOT_PATH} ${CMAKE_PREFIX_PATH} ${CMAKE_SYSTEM_PREFIX_PATH} "")
set(linked_libraries "[]")

# qnrescue_find_notices(variable pattern...): sets the variable to the files that match the first
# pattern with any, below the first folder with any.
function(qnrescue_find_notices variable)
  foreach(root IN LISTS notice_roots)
    foreach(pattern IN LISTS ARGN)
      file(GLOB notices LIST_DIRECTORIES FALSE "${root}/${pattern}")
      if(notices)
        set(${variable} "${notices}" PARENT_SCOPE)
        return()
      endif()
    endforeach()
  endforeach()
  set(${variable} "" PARENT_SCOPE)
endfunction()

# qnrescue_debian_version(variable notices): sets the variable to the version of the Debian package
# that the notices are of; leaves it alone if they are of none.
function(qnrescue_debian_version variable notices)
  if(notices MATCHES "/usr/share/doc/([^/]+)/copyright$")
    execute_process(COMMAND dpkg-query --show "--showformat=\${Version}" "${CMAKE_MATCH_1}"
      OUTPUT_VARIABLE version RESULT_VARIABLE status ERROR_QUIET)
    if(status EQUAL 0)
      set(${variable} "${version}" PARENT_SCOPE)
    endif()
  endif()
endfunction()

# qnrescue_linked_library(library version license pattern...): installs the notices that the
# patterns find and lists the library, with the version of its Debian package if they are of one.
function(qnrescue_linked_library library version license)
  qnrescue_find_notices(notices ${ARGN})
  if(notices)
    install(FILES ${notices} DESTINATION "licenses/${library}")
    qnrescue_debian_version(version "${notices}")
  else()
    message(WARNING "The notice of ${library} was not found; licenses/ of the package lacks it.")
  endif()
  string(JSON count LENGTH "${linked_libraries}")
  string(JSON list SET "${linked_libraries}" ${count}
    "{\"name\": \"${library}\", \"version\": \"${version}\", \"license\": \"${license}\"}")
  set(linked_libraries "${list}" PARENT_SCOPE)
endfunction()

qnrescue_linked_library(Boost "${Boost_VERSION}" BSL-1.0
  share/licenses/boost/* share/boost-filesystem/copyright)
qnrescue_linked_library(fmt "${fmt_VERSION}" MIT share/licenses/fmt/* share/fmt/copyright)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  qnrescue_linked_library(GCC "${CMAKE_CXX_COMPILER_VERSION}"
    "GPL-3.0-or-later WITH GCC-exception-3.1"
    usr/share/doc/gcc-mingw-w64-base/copyright share/licenses/gcc-libs/*)
  qnrescue_linked_library(mingw-w64 unknown ZPL-2.1
    usr/share/doc/mingw-w64-x86-64-dev/copyright share/licenses/crt/*)
  qnrescue_linked_library(winpthreads unknown "MIT AND BSD-3-Clause"
    usr/share/doc/mingw-w64-x86-64-dev/copyright share/licenses/*winpthread*/*)
endif()
file(WRITE "${PROJECT_BINARY_DIR}/linked_libraries.json" "${linked_libraries}\n")
