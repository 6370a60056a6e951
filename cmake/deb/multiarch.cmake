# Run by cpack after it has written the Debian packages (CPACK_PACKAGE_FILES): adds the
# Multi-Arch field CPack cannot write. The library, its debug symbols and the -dev package
# are "same" (their files for several architectures install side by side: architecture-
# specific files live in the multiarch libdir, the headers are identical); the
# architecture-independent documentation is "foreign".
find_program(ZUSTD_DPKG_DEB dpkg-deb REQUIRED)
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "\\.d?deb$")
    continue()
  endif()
  set(value same)
  if(package MATCHES "_all\\.deb$")
    set(value foreign)
  endif()
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND ${ZUSTD_DPKG_DEB} -R ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${tree}/DEBIAN/control control)
  if(NOT control MATCHES "(^|\n)Multi-Arch:")
    string(REGEX REPLACE "(^|\n)(Architecture: [^\n]*\n)" "\\1\\2Multi-Arch: ${value}\n" control
           "${control}")
    file(WRITE ${tree}/DEBIAN/control "${control}")
    execute_process(COMMAND ${ZUSTD_DPKG_DEB} --root-owner-group -Zxz -b ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  file(REMOVE_RECURSE ${tree})
endforeach()
