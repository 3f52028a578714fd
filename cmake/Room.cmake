# velazce_room(TARGET NAME [PRIVATE]): the headers of the current folder, under the room's name.
#
# Whoever links TARGET includes them as "NAME/Header.h", and finds no other room's: the include path
# holds a link to this folder and nothing beside it. scripts/check-includes.sh says which room may
# see which. PRIVATE: only TARGET itself finds them.
function(velazce_room target name)
  set(scope PUBLIC)
  if("${ARGN}" STREQUAL "PRIVATE")
    set(scope PRIVATE)
  endif()
  set(path ${CMAKE_CURRENT_BINARY_DIR}/include)
  file(MAKE_DIRECTORY ${path})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${path}/${name} SYMBOLIC)
  target_include_directories(${target} ${scope} ${path})
endfunction()
