# Three Debian packages: the agent, the shared library, and what building a host takes.
set(MTF_MAINTAINER "mtf maintainers <mtf@example.org>" CACHE STRING
  "Who answers for the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL agent runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${MTF_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME mtf-agent)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_AGENT_PACKAGE_SHLIBDEPS ON)
# What users other than root mount with, and what serves storages elsewhere.
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS "fuse3, rclone")
set(CPACK_DEBIAN_AGENT_DESCRIPTION "saves, verifies and restores backups in the Microsoft Tape Format
Saves directories as full and incremental jobs, spread over parallel channels,
with extended attributes, access control lists and holes. Each job can be
listed, verified byte for byte, and restored as a whole or in parts.")

set(library_package libmtf${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
configure_file(cmake/debian/shlibs.in debian/shlibs @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers
  ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "writes backups in the Microsoft Tape Format
A host program names what to save and supplies a storage channel for each
parallel stream; the library writes one media and one catalog on each.
This package holds the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libmtf-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
string(CONCAT CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "${library_package} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libace-dev, "
  "libboost-dev, nlohmann-json3-dev, liblz4-dev, libzstd-dev, libxxhash-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "headers and static library for backups in the Microsoft Tape Format
A host program names what to save and supplies a storage channel for each
parallel stream; the library writes one media and one catalog on each.
This package holds what building such a program takes.")

# Each package has both changelogs, the library's and the package's, and a copyright.
find_program(GZIP gzip)
if(GZIP)
  string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(cmake/debian/changelog.in debian/changelog.Debian @ONLY)
  configure_file(CHANGELOG.md debian/changelog COPYONLY)
  execute_process(COMMAND ${GZIP} -9nf debian/changelog.Debian debian/changelog
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)
  foreach(component agent runtime dev)
    string(TOUPPER CPACK_DEBIAN_${component}_PACKAGE_NAME package)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian.gz
      ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${package}} COMPONENT ${component})
  endforeach()
endif()

include(CPack)
