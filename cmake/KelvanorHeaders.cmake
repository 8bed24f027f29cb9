# The broker's public headers, and the folder through which the build finds
# them the way users and the headers themselves write them: <kelvanor/orb.h>.
# Every header of dispatch/, base/, zeb/ and CORBA/ is public, with those
# generated from the broker's IDL and kelvanor/version.h. In the build tree
# include/kelvanor/ holds a link to each, wherever it lives, so that an edit
# of a header needs no step of its own; install copies the same list.
# tools/broker-includes.sh rewrites a new header's include lines to the form.
file(GLOB KELVANOR_PUBLIC_HEADERS CONFIGURE_DEPENDS
     ${CMAKE_SOURCE_DIR}/dispatch/include/*.h ${CMAKE_SOURCE_DIR}/base/include/*.h
     ${CMAKE_SOURCE_DIR}/zeb/include/*.h ${CMAKE_SOURCE_DIR}/CORBA/include/*.h)
file(GLOB broker_idl ${CMAKE_SOURCE_DIR}/CORBA/idl/*.idl)
foreach(idl ${broker_idl})
  get_filename_component(name ${idl} NAME_WE)
  # orb.idl only declares, for IDL files, what the hand-written orb.h holds.
  if(NOT EXISTS ${CMAKE_SOURCE_DIR}/CORBA/include/${name}.h)
    list(APPEND KELVANOR_PUBLIC_HEADERS ${CMAKE_BINARY_DIR}/idl/kelvanor_orb/${name}.h)
  endif()
endforeach()
configure_file(${CMAKE_SOURCE_DIR}/cmake/version.h.in ${CMAKE_BINARY_DIR}/version/version.h @ONLY)
list(APPEND KELVANOR_PUBLIC_HEADERS ${CMAKE_BINARY_DIR}/version/version.h)

# Links made by an earlier run may name headers that are gone: start afresh.
set(mirror ${CMAKE_BINARY_DIR}/include/kelvanor)
file(REMOVE_RECURSE ${mirror})
file(MAKE_DIRECTORY ${mirror})
foreach(header ${KELVANOR_PUBLIC_HEADERS})
  get_filename_component(name ${header} NAME)
  file(CREATE_LINK ${header} ${mirror}/${name} SYMBOLIC)
endforeach()
