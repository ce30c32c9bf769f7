# What an installed copy gives: the agent, and to hosts the public headers, both libraries,
# find_package(mtf) and pkg-config. `cpack -G DEB` makes three Debian packages of it.
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/exports.cmake)

export_only(mtf_shared ${CMAKE_CURRENT_LIST_DIR}/exports.txt)

install(TARGETS mtf_static mtf_shared EXPORT mtf_targets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# Each with its folder, so that hosts include them as this tree does.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/public_headers.txt headers REGEX "^[^#]")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_LIST_DIR}/public_headers.txt)
foreach(header IN LISTS headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION include/mtf/${folder} COMPONENT dev)
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mtf)
install(EXPORT mtf_targets NAMESPACE mtf:: DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(cmake/mtf-config.cmake.in mtf-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(mtf-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mtf-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/mtf-config-version.cmake DESTINATION ${package_dir} COMPONENT dev)

file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/mtf.pc.in mtf.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/mtf.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmtf-dev COMPONENT dev)
install(FILES examples/embed.cpp DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmtf-dev/examples
  COMPONENT dev)

include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
