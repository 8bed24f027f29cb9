# Runs inside `cmake --install` and cpack: writes a file from its template
# with the prefix that this install uses, then installs it.
# The templates use @prefix@, @bindir@, @libdir@, @includedir@, @idldir@,
# @envfile@ and @KELVANOR_VERSION@. Configuration lives in /etc when the
# prefix is /usr, as Debian has it, and in <prefix>/etc otherwise.
set(prefix "${CMAKE_INSTALL_PREFIX}")
set(bindir "${prefix}/${KELVANOR_BINDIR}")
set(libdir "${prefix}/${KELVANOR_LIBDIR}")
set(includedir "${prefix}/${KELVANOR_INCLUDEDIR}")
set(idldir "${prefix}/${KELVANOR_IDLDIR}")
if(prefix STREQUAL "/usr")
  set(sysconfdir /etc)
else()
  set(sysconfdir "${prefix}/etc")
endif()
set(envfile "${sysconfdir}/default/kelvanor-vex")

# kelvanor_install_configured(<template> <folder> <name>): the template is
# relative to the source tree. file(INSTALL) adds DESTDIR and lists the file
# in install_manifest.txt like every other installed file.
function(kelvanor_install_configured template destination name)
  configure_file("${KELVANOR_SOURCE}/${template}" "${KELVANOR_SCRATCH}/${name}" @ONLY)
  file(INSTALL "${KELVANOR_SCRATCH}/${name}" DESTINATION "${destination}")
endfunction()
