# Read by cpack for each generator. A Debian package built without `file` or, natively,
# without dpkg-shlibdeps would come out with an empty Depends line: stop instead.
if(CPACK_GENERATOR STREQUAL "DEB")
  cmake_policy(SET CMP0109 NEW)  # a tool must be executable to count as found
  find_program(ZUSTD_FILE_PROGRAM file)
  if(NOT ZUSTD_FILE_PROGRAM)
    message(FATAL_ERROR "Debian packages need the `file` program: apt-get install -y file")
  endif()
  if(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS)
    find_program(ZUSTD_SHLIBDEPS dpkg-shlibdeps)
    if(NOT ZUSTD_SHLIBDEPS)
      message(FATAL_ERROR "Debian packages need dpkg-shlibdeps: apt-get install -y dpkg-dev")
    endif()
  endif()
endif()
