# Debian package: `cpack -G DEB` in a build configured with
# -DCMAKE_INSTALL_PREFIX=/usr. One package holds everything that is
# installed: the runtime libraries, the norva tool with its man page and the
# schema file, and the development files (headers, CMake package, .pc file).
# The library is small and its headers need nothing beyond it, so splitting it
# would only add packages to keep in step.
set(CPACK_PACKAGE_NAME "libnorvadatalayer")
set(CPACK_PACKAGE_VENDOR "norvadatalayer developers")
set(CPACK_PACKAGE_CONTACT "norvadatalayer developers <norva@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Data layer of a print-production workflow (jdfdb), its headers and the norva tool")
set(CPACK_PACKAGE_DESCRIPTION
  "Typed data providers that keep the workflow's queue entries, JDF tickets, content files, devices, servers and status subscriptions in a MariaDB schema; with headers, CMake package and pkg-config file for host programs, and norva, the operator's command-line tool.")
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# Library dependencies come from dpkg-shlibdeps; the rest is named here:
# pkg-config for the .pc file, the client that init-db runs, and the server
# the schema is meant for.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "pkg-config")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "mariadb-client")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "mariadb-server")
# The package's own libraries satisfy each other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/platform)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_SET_DESTDIR OFF)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
include(CPack)
