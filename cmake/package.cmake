# What an installed copy gives to hosts: headers, both libraries, find_package(mtf) and pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS mtf_static mtf_shared EXPORT mtf_targets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(folder oxbase platform services mtf)
  install(DIRECTORY ${folder} DESTINATION include/mtf FILES_MATCHING PATTERN "*.h")
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mtf)
install(EXPORT mtf_targets NAMESPACE mtf:: DESTINATION ${package_dir})
configure_package_config_file(cmake/mtf-config.cmake.in mtf-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(mtf-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mtf-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/mtf-config-version.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/mtf.pc.in mtf.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mtf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
