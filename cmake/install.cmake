include(CMakePackageConfigHelpers)

install(TARGETS kelqavi kelqavi_static EXPORT kelqaviTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/kelqavi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(KELQAVI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kelqavi)
install(EXPORT kelqaviTargets NAMESPACE kelqavi:: DESTINATION ${KELQAVI_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelqaviConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kelqaviConfig.cmake INSTALL_DESTINATION ${KELQAVI_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelqaviConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelqaviConfig.cmake ${PROJECT_BINARY_DIR}/kelqaviConfigVersion.cmake
  DESTINATION ${KELQAVI_CMAKE_DIR})

# The .pc file finds its prefix from where it lies, so the tree can be moved.
file(RELATIVE_PATH KELQAVI_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/kelqavi.pc.in ${PROJECT_BINARY_DIR}/kelqavi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelqavi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
