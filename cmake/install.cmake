# Install rules: the library, its headers under include/zustd/, a CMake package
# (find_package(zustd 1 CONFIG) -> zustd::zustd) and zustd.pc for pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS zustd EXPORT zustdTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zustd COMPONENT dev)

set(ZUSTD_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zustd)
install(EXPORT zustdTargets NAMESPACE zustd:: DESTINATION ${ZUSTD_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(cmake/zustdConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zustdConfig.cmake INSTALL_DESTINATION ${ZUSTD_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zustdConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zustdConfig.cmake ${PROJECT_BINARY_DIR}/zustdConfigVersion.cmake
  DESTINATION ${ZUSTD_CMAKE_DIR} COMPONENT dev)

# The .pc file finds its prefix relative to itself, so a staged or relocated install works.
file(RELATIVE_PATH ZUSTD_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" ZUSTD_PC_TO_PREFIX "${ZUSTD_PC_TO_PREFIX}")
configure_file(cmake/zustd.pc.in ${PROJECT_BINARY_DIR}/zustd.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zustd.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Debian packages: libzustd1 (the shared library) and libzustd-dev (headers, CMake package,
# pkg-config file, the unversioned link). `cpack -G DEB` in a build configured with
# CMAKE_INSTALL_PREFIX=/usr (the `package-host` and `package-armhf` presets).
set(CPACK_PACKAGE_NAME libzustd)
set(CPACK_PACKAGE_VENDOR "zustd developers")
set(CPACK_PACKAGE_CONTACT "zustd developers <maintainers@zustd.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(TARGET zustd-cli)
  list(APPEND CPACK_COMPONENTS_ALL tools)  # zustd-tools: the command-line tool
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzustd1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzustd-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libzustd1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zustd-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# CPack puts the package summary first; this is the extended description.
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "The zustd command-line tool reads and changes parameter files,
evaluates formulas, reads and adds log entries, and converts base64 and times,
through libzustd, for shell scripts, installers and device maintenance.")
# Stated by hand: dpkg-shlibdeps would look for libzustd1 among the installed packages.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "libzustd1 (= ${PROJECT_VERSION}), libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
  # dpkg-shlibdeps cannot see the cross libstdc++: state the dependencies by hand.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
