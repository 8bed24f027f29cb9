# kelvanor_idl(<target> <file.idl>...)
#
# Compiles each IDL file at build time with tools/idl/kelvanor-idl into
# <current binary dir>/idl/<target>/<name>.h and <name>.cc, adds the sources
# to the target and the directory to the target's public include path, so
# that whatever links the target includes "<name>.h". The directories of the
# IDL files are on the IDL include path. omniidl is needed at build time only.
find_program(KELVANOR_OMNIIDL omniidl)
set(KELVANOR_IDL_TOOL_DIR ${CMAKE_CURRENT_LIST_DIR}/../tools/idl)
get_filename_component(KELVANOR_IDL_TOOL_DIR ${KELVANOR_IDL_TOOL_DIR} ABSOLUTE)
file(GLOB KELVANOR_IDL_GENERATOR ${KELVANOR_IDL_TOOL_DIR}/*.py)

function(kelvanor_idl target)
  if(NOT KELVANOR_OMNIIDL)
    message(FATAL_ERROR "kelvanor_idl: omniidl not found (tools/deps.sh installs it)")
  endif()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/idl/${target})
  set(compiler ${KELVANOR_IDL_TOOL_DIR}/kelvanor-idl)
  set(idls)
  set(includes)
  foreach(idl ${ARGN})
    get_filename_component(abs ${idl} ABSOLUTE)
    get_filename_component(dir ${abs} DIRECTORY)
    list(APPEND idls ${abs})
    list(APPEND includes -I${dir})
  endforeach()
  list(REMOVE_DUPLICATES includes)
  foreach(abs ${idls})
    get_filename_component(name ${abs} NAME_WE)
    add_custom_command(
      OUTPUT ${out}/${name}.h ${out}/${name}.cc
      COMMAND ${CMAKE_COMMAND} -E env OMNIIDL=${KELVANOR_OMNIIDL}
              ${compiler} ${includes} -o ${out} ${abs}
      DEPENDS ${abs} ${compiler} ${KELVANOR_IDL_GENERATOR}
      COMMENT "kelvanor-idl ${name}.idl"
      VERBATIM)
    target_sources(${target} PRIVATE ${out}/${name}.h ${out}/${name}.cc)
  endforeach()
  target_include_directories(${target} PUBLIC ${out})
endfunction()
