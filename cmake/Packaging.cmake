# What an integrator gets from `cmake --install` besides the programs and the
# module: the CMake package DataStore, datastore.pc, and the Debian package
# that CPack makes of it all.
include(CMakePackageConfigHelpers)

set(DATASTORE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/DataStore)
# The module under the prefix; an installed dshost finds it there too.
set(DATASTORE_MODULE_FILE
  ${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}datastore${CMAKE_SHARED_LIBRARY_SUFFIX})

# find_package(DataStore): DataStore::HostBoundary, DataStore_MODULE and
# DataStore::Module, all relative to wherever the package was installed.
install(EXPORT DataStoreTargets NAMESPACE DataStore:: DESTINATION ${DATASTORE_CMAKE_DIR})
configure_package_config_file(cmake/DataStoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/DataStoreConfig.cmake
  INSTALL_DESTINATION ${DATASTORE_CMAKE_DIR}
  PATH_VARS DATASTORE_MODULE_FILE)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/DataStoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/DataStoreConfig.cmake
  ${PROJECT_BINARY_DIR}/DataStoreConfigVersion.cmake DESTINATION ${DATASTORE_CMAKE_DIR})

# datastore.pc finds the prefix from its own folder, so that it stays right
# under any --prefix given at install time.
file(RELATIVE_PATH DATASTORE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" DATASTORE_PC_TO_PREFIX ${DATASTORE_PC_TO_PREFIX})
configure_file(cmake/datastore.pc.in ${PROJECT_BINARY_DIR}/datastore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/datastore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Debian package (scripts/package.sh): everything above under /usr. Its
# dependencies are read off the binaries by dpkg-shlibdeps (dpkg-dev, file).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME datastore)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Price-history store module for trading terminals, its reference host dshost and the cjd file tool")
if(NOT CPACK_PACKAGE_CONTACT)  # the Maintainer field; -DCPACK_PACKAGE_CONTACT=... sets the real one
  set(CPACK_PACKAGE_CONTACT "DataStore maintainers <datastore@localhost>")
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
