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

# Debian packages, split and built as Debian builds them: libzustd1 (the shared library,
# stripped), libzustd1-dbgsym (its debug information, found by build id), libzustd-dev
# (headers, CMake package, pkg-config file, the unversioned link) and, from the docs preset,
# libzustd-doc (the API reference). `cpack -G DEB` in a build configured with
# CMAKE_INSTALL_PREFIX=/usr (the package-* presets and docs).
set(CPACK_PACKAGE_NAME libzustd)
set(CPACK_PACKAGE_VENDOR "zustd developers")
set(CPACK_PACKAGE_CONTACT "zustd developers <maintainers@zustd.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
if(ZUSTD_BUILD_DOCS)
  set(CPACK_COMPONENTS_ALL doc)
else()
  set(CPACK_COMPONENTS_ALL runtime dev)
  if(TARGET zustd-cli)
    list(APPEND CPACK_COMPONENTS_ALL tools)  # zustd-tools: the command-line tool
  endif()
endif()
# Each package's description: the project's summary line, then these.
string(CONCAT CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "The shared library libzustd.so.1: strings, containers, a formula evaluator,\n"
    "parameter files, log files, time, threads, mutexes, events, files, shared\n"
    "libraries and TCP/UDP sockets.")
string(CONCAT CPACK_COMPONENT_DEV_DESCRIPTION
    "Development files: the headers, the CMake package zustd::zustd, zustd.pc and\n"
    "the link library.")
string(CONCAT CPACK_COMPONENT_DOC_DESCRIPTION
    "API reference: HTML pages for every public class and function, in\n"
    "/usr/share/doc/libzustd-doc/html.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Every package with programs or libraries ships them stripped, with a -dbgsym package.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
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
set(CPACK_DEBIAN_DOC_PACKAGE_NAME libzustd-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/deb/triggers)
# The target's binutils split and strip the library (the host's may not know the target).
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
# Refuses to package without the tools that fill in Depends, and adds Multi-Arch fields.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/deb/cpack-config.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/deb/multiarch.cmake)
set(zustd_deb_arch_arm armhf)
set(zustd_deb_arch_aarch64 arm64)
if(CMAKE_CROSSCOMPILING)
  if(NOT DEFINED zustd_deb_arch_${CMAKE_SYSTEM_PROCESSOR})
    message(FATAL_ERROR "No Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  # dpkg-shlibdeps cannot see the cross libstdc++: state the dependencies by hand.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${zustd_deb_arch_${CMAKE_SYSTEM_PROCESSOR}})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
