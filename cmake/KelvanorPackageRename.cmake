# Run by cpack after it has installed a package's files into its staging
# folder: renames iordump and its man page to kelvanor-iordump, a name that
# no Debian package holds (cmake/KelvanorPackage.cmake says why).
file(GLOB_RECURSE found "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/iordump"
     "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/iordump.1")
foreach(path ${found})
  get_filename_component(dir "${path}" DIRECTORY)
  get_filename_component(name "${path}" NAME)
  file(RENAME "${path}" "${dir}/kelvanor-${name}")
endforeach()
