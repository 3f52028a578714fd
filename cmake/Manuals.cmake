# The manual pages, compressed as man reads them, and the completion for bash. A page of a program that
# this build does not have is not installed.
find_program(GZIP gzip REQUIRED)
set(VELAZCE_MANUALS velazcemdapi.7 VelaZceMdApi.3 zce-config.5 zce-record.7 zce-watch.7)
set(VELAZCE_COMPLETIONS "")
foreach(program zce-board zce-board-ctl zce-board-run zce-top zce-recv zce-check zce-bin zce-capture zce-watch zce-relay)
  string(REGEX REPLACE "-(ctl|run)$" "" target ${program})
  if(TARGET ${target})
    list(APPEND VELAZCE_MANUALS ${program}.1)
    list(APPEND VELAZCE_COMPLETIONS ${program})
  endif()
endforeach()
list(REMOVE_ITEM VELAZCE_COMPLETIONS zce-board-ctl) # in that of zce-board

set(VELAZCE_MANUAL_DIR ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${VELAZCE_MANUAL_DIR})
set(compressed "")
foreach(manual ${VELAZCE_MANUALS})
  set(source ${PROJECT_SOURCE_DIR}/man/${manual})
  add_custom_command(OUTPUT ${VELAZCE_MANUAL_DIR}/${manual}.gz
                     COMMAND ${GZIP} -9nc ${source} > ${VELAZCE_MANUAL_DIR}/${manual}.gz
                     DEPENDS ${source} VERBATIM)
  list(APPEND compressed ${VELAZCE_MANUAL_DIR}/${manual}.gz)
  string(REGEX REPLACE ".*\\.([1-9])$" "\\1" section ${manual})
  set(component board)
  if(section EQUAL 3)
    set(component development)
  elseif(NOT section EQUAL 1 AND NOT manual MATCHES "^zce-(record|watch)[.]7$")
    set(component documentation)
  endif()
  install(FILES ${VELAZCE_MANUAL_DIR}/${manual}.gz
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endforeach()
add_custom_target(manuals ALL DEPENDS ${compressed})
add_dependencies(installed manuals)
foreach(program ${VELAZCE_COMPLETIONS})
  install(FILES completion/${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT board)
endforeach()
