# What `cmake --install` puts under the prefix, in two components: runtime
# (the programs, the shared libraries, their man pages and the service) and
# dev (headers, static libraries and the shared ones' links, the CMake
# package, kelvanor.pc, the IDL compiler, the echo example). The files that
# name the prefix (kelvanor.pc, the unit and its environment file) are
# written at install time (cmake/KelvanorInstallTime.cmake), so that both
# `--prefix P` and cpack's /usr get their own.
include(CMakePackageConfigHelpers)
set(KELVANOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kelvanor)
set(KELVANOR_DATA_DIR ${CMAKE_INSTALL_DATADIR}/kelvanor)

# The programs, dsquery (the directory agent's query tool) among them.
set(programs vex vexctl)
foreach(optional iordump dsquery)
  if(TARGET ${optional})
    list(APPEND programs ${optional})
  endif()
endforeach()
if(BUILD_SHARED_LIBS)
  # Relative, so that an installed tree may move: bin/ finds lib/ from where
  # it is, and each library its siblings (a RUNPATH serves only the object
  # that carries it, not the libraries it loads).
  file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(${programs} PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
  set_target_properties(kelvanor_dispatch kelvanor_base kelvanor_orb PROPERTIES
    INSTALL_RPATH "$ORIGIN")
endif()
install(TARGETS ${programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
foreach(page daemon/vex.8 tools/vexctl.1 tools/iordump.1 tools/dsquery.1 tools/idl/kelvanor-idl.1)
  if(EXISTS ${CMAKE_SOURCE_DIR}/${page})
    string(REGEX REPLACE ".*\\.([0-9])$" "\\1" section ${page})
    set(component runtime)
    if(page MATCHES "kelvanor-idl")
      set(component dev)
    endif()
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endif()
endforeach()

# The libraries, their headers and the CMake package around them.
install(TARGETS kelvanor_dispatch kelvanor_base kelvanor_orb EXPORT KelvanorTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(FILES ${KELVANOR_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelvanor
  COMPONENT dev)
install(EXPORT KelvanorTargets NAMESPACE Kelvanor:: DESTINATION ${KELVANOR_CMAKE_DIR}
  COMPONENT dev)
configure_package_config_file(cmake/KelvanorConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/KelvanorConfig.cmake
  INSTALL_DESTINATION ${KELVANOR_CMAKE_DIR}
  PATH_VARS CMAKE_INSTALL_BINDIR KELVANOR_INSTALL_IDL_DIR KELVANOR_INSTALL_IDL_BACKEND_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/KelvanorConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/KelvanorConfig.cmake
  ${CMAKE_BINARY_DIR}/package/KelvanorConfigVersion.cmake cmake/KelvanorIdl.cmake
  DESTINATION ${KELVANOR_CMAKE_DIR} COMPONENT dev)

# The IDL compiler: the script that tools/CMakeLists.txt wrote for bin/, its
# back end and the broker's IDL files.
install(PROGRAMS ${CMAKE_BINARY_DIR}/tools/install/kelvanor-idl
  DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
install(FILES ${KELVANOR_IDL_GENERATOR} DESTINATION ${KELVANOR_INSTALL_IDL_BACKEND_DIR}
  COMPONENT dev)
file(GLOB broker_idl ${KELVANOR_IDL_SOURCE_DIR}/*.idl)
install(FILES ${broker_idl} DESTINATION ${KELVANOR_INSTALL_IDL_DIR} COMPONENT dev)

# The echo example, a project of its own against the installed prefix.
install(FILES examples/echo/CMakeLists.txt examples/echo/echo.idl
  examples/echo/echo_server.cc examples/echo/echo_client.cc examples/echo/agent_option.h
  DESTINATION ${KELVANOR_DATA_DIR}/examples/echo COMPONENT dev)

# Written at install time from their templates.
set(at_install "set(KELVANOR_SOURCE \"${CMAKE_SOURCE_DIR}\")
  set(KELVANOR_SCRATCH \"${CMAKE_BINARY_DIR}/package/install-time\")
  set(KELVANOR_VERSION \"${PROJECT_VERSION}\")
  set(KELVANOR_BINDIR \"${CMAKE_INSTALL_BINDIR}\")
  set(KELVANOR_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
  set(KELVANOR_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
  set(KELVANOR_IDLDIR \"${KELVANOR_INSTALL_IDL_DIR}\")
  include(\"${CMAKE_SOURCE_DIR}/cmake/KelvanorInstallTime.cmake\")")
install(CODE "${at_install}
  kelvanor_install_configured(cmake/kelvanor.pc.in \"\${libdir}/pkgconfig\" kelvanor.pc)" COMPONENT dev)
install(CODE "${at_install}
  kelvanor_install_configured(daemon/kelvanor-vex.service.in
    \"\${prefix}/lib/systemd/system\" kelvanor-vex.service)
  kelvanor_install_configured(daemon/kelvanor-vex.default.in \"\${sysconfdir}/default\" kelvanor-vex)" COMPONENT runtime)
