# Run by cpack after it has written the Debian packages (CPACK_PACKAGE_FILES): adds the
# Multi-Arch field CPack cannot write. The library packages (libzustd1, its -dbgsym, the -dev
# package) are "same": their files for several architectures install side by side, since
# everything architecture-specific lives in the multiarch libdir and the headers are identical.
# Any other package (documentation, programs) is "foreign": it serves every architecture.
# Debug symbols of programs get no field, as in Debian.
find_program(ZUSTD_DPKG_DEB dpkg-deb REQUIRED)
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "\\.d?deb$")
    continue()
  endif()
  get_filename_component(name ${package} NAME)
  if(name MATCHES "_all\\.deb$")
    set(value foreign)
  elseif(name MATCHES "^lib")
    set(value same)
  elseif(name MATCHES "-dbgsym_")
    continue()
  else()
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
