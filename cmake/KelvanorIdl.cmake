# kelvanor_idl(<target> <file.idl>... [INCLUDE_DIRS <dir>...] [DEPENDS <file>...])
#
# Compiles each IDL file at build time with kelvanor-idl into
# <current binary dir>/idl/<target>/<name>.h and <name>.cc, adds the sources
# to the target and the directory to the target's include path (public in
# the build tree), so that whatever links the target includes "<name>.h".
# The IDL include path holds the directories of the IDL files, the broker's
# own IDL (CosNaming.idl, Activation.idl, whose headers come with the
# broker's library) and INCLUDE_DIRS. The generated files are remade when
# their IDL file, the compiler or a file named in DEPENDS changes (#included
# IDL files are not found by themselves: name them there). omniidl is needed
# at build time only.
#
# Whoever includes this file sets KELVANOR_IDL_COMPILER (the kelvanor-idl
# script), KELVANOR_IDL_SOURCE_DIR (the broker's IDL folder) and
# KELVANOR_IDL_GENERATOR (the back end's files, for the dependencies): the
# source tree to its own build, KelvanorConfig.cmake to an installed prefix.
find_program(KELVANOR_OMNIIDL omniidl)

function(kelvanor_idl target)
  cmake_parse_arguments(KIDL "" "" "INCLUDE_DIRS;DEPENDS" ${ARGN})
  if(NOT KELVANOR_OMNIIDL)
    message(FATAL_ERROR "kelvanor_idl: omniidl not found (install Debian's omniidl)")
  endif()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/idl/${target})
  set(idls)
  set(includes)
  foreach(idl ${KIDL_UNPARSED_ARGUMENTS})
    get_filename_component(abs ${idl} ABSOLUTE)
    get_filename_component(dir ${abs} DIRECTORY)
    list(APPEND idls ${abs})
    list(APPEND includes -I${dir})
  endforeach()
  foreach(dir ${KIDL_INCLUDE_DIRS} ${KELVANOR_IDL_SOURCE_DIR})
    get_filename_component(dir ${dir} ABSOLUTE)
    list(APPEND includes -I${dir})
  endforeach()
  list(REMOVE_DUPLICATES includes)
  set(extra)
  foreach(dep ${KIDL_DEPENDS})
    get_filename_component(dep ${dep} ABSOLUTE)
    list(APPEND extra ${dep})
  endforeach()
  foreach(abs ${idls})
    get_filename_component(name ${abs} NAME_WE)
    add_custom_command(
      OUTPUT ${out}/${name}.h ${out}/${name}.cc
      COMMAND ${CMAKE_COMMAND} -E env OMNIIDL=${KELVANOR_OMNIIDL}
              ${KELVANOR_IDL_COMPILER} ${includes} -o ${out} ${abs}
      DEPENDS ${abs} ${KELVANOR_IDL_COMPILER} ${KELVANOR_IDL_GENERATOR} ${extra}
      COMMENT "kelvanor-idl ${name}.idl"
      VERBATIM)
    target_sources(${target} PRIVATE ${out}/${name}.h ${out}/${name}.cc)
  endforeach()
  # Generated headers include the broker's as <kelvanor/...>, so this folder
  # may come first on the path whatever its files are named.
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${out}>)
endfunction()
