# kelvanor_idl(<target> <file.idl>... [INCLUDE_DIRS <dir>...] [DEPENDS <file>...])
#
# Compiles each IDL file at build time with tools/idl/kelvanor-idl into
# <current binary dir>/idl/<target>/<name>.h and <name>.cc, adds the sources
# to the target and the directory to the target's public include path, so
# that whatever links the target includes "<name>.h". The IDL include path
# holds the directories of the IDL files, CORBA/idl (the broker's own IDL,
# whose headers come with kelvanor_orb) and INCLUDE_DIRS. The generated
# files are remade when their IDL file, the compiler or a file named in
# DEPENDS changes (#included IDL files are not found by themselves: name
# them there). omniidl is needed at build time only.
find_program(KELVANOR_OMNIIDL omniidl)
set(KELVANOR_IDL_TOOL_DIR ${CMAKE_CURRENT_LIST_DIR}/../tools/idl)
get_filename_component(KELVANOR_IDL_TOOL_DIR ${KELVANOR_IDL_TOOL_DIR} ABSOLUTE)
file(GLOB KELVANOR_IDL_GENERATOR ${KELVANOR_IDL_TOOL_DIR}/*.py)
get_filename_component(KELVANOR_IDL_SOURCE_DIR ${CMAKE_CURRENT_LIST_DIR}/../CORBA/idl ABSOLUTE)

function(kelvanor_idl target)
  cmake_parse_arguments(KIDL "" "" "INCLUDE_DIRS;DEPENDS" ${ARGN})
  if(NOT KELVANOR_OMNIIDL)
    message(FATAL_ERROR "kelvanor_idl: omniidl not found (tools/deps.sh installs it)")
  endif()
  set(out ${CMAKE_CURRENT_BINARY_DIR}/idl/${target})
  set(compiler ${KELVANOR_IDL_TOOL_DIR}/kelvanor-idl)
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
              ${compiler} ${includes} -o ${out} ${abs}
      DEPENDS ${abs} ${compiler} ${KELVANOR_IDL_GENERATOR} ${extra}
      COMMENT "kelvanor-idl ${name}.idl"
      VERBATIM)
    target_sources(${target} PRIVATE ${out}/${name}.h ${out}/${name}.cc)
  endforeach()
  target_include_directories(${target} PUBLIC ${out})
endfunction()
