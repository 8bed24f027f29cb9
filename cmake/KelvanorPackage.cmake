# `cpack -G DEB` in a build tree: two packages, split the way Debian splits
# a library and its development files.
#   kelvanor      the runtime component: vex, vexctl, iordump (named
#                 kelvanor-iordump, see below), the shared
#                 libraries of a -DBUILD_SHARED_LIBS=ON build, the service and
#                 its settings (/etc/default/kelvanor-vex, a conffile), man pages.
#                 Depends: what dpkg-shlibdeps finds (libc6, libstdc++6, libgcc-s1).
#   kelvanor-dev  headers, static libraries or the shared ones' links, the
#                 CMake package, kelvanor.pc, kelvanor-idl, the echo example.
#                 Depends: kelvanor of the same version, and omniidl, without
#                 which kelvanor-idl and kelvanor_idl() cannot run: a program
#                 that the package's own tool always calls is a dependency,
#                 not a recommendation, and only this package has that tool.
# The package installs under /usr; the files that name the prefix are
# written for it at install time (cmake/KelvanorInstallTime.cmake), which
# needs the real prefix and DESTDIR rather than a prefix inside the staging
# folder: hence CPACK_SET_DESTDIR.
set(CPACK_PACKAGE_NAME kelvanor)
set(CPACK_PACKAGE_VENDOR "Kelvanor")
set(CPACK_PACKAGE_CONTACT "Kelvanor developers <kelvanor@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "CORBA 2.0 object request broker for C++ and its activation daemon")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kelvanor)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION_SUMMARY}
 The activation daemon vex starts registered server programs when a client
 binds to their objects; vexctl administers it, iordump reads references.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME kelvanor-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS omniidl)
set(CPACK_DEBIAN_DEV_DESCRIPTION "Kelvanor: headers, libraries and IDL compiler
 What building CORBA servers and clients with Kelvanor needs: the headers,
 the CMake package (find_package(Kelvanor)), kelvanor.pc, the IDL compiler
 kelvanor-idl and the echo example.")
if(BUILD_SHARED_LIBS)
  # ldconfig triggers and a shlibs file for the shared libraries.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
endif()
# Debian's tcl-combat, Combat's IDL tools, owns /usr/bin/iordump. The package
# ships ours as kelvanor-iordump (as Debian renames fd to fdfind), with its
# man page; a plain install keeps the name iordump.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/KelvanorPackageRename.cmake)
file(WRITE ${CMAKE_BINARY_DIR}/package/conffiles "/etc/default/kelvanor-vex\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/package/conffiles)
include(CPack)
