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

configure_file(cmake/zustd.pc.in ${PROJECT_BINARY_DIR}/zustd.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zustd.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
