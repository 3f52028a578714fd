# cmake --install: the library with its headers, its CMake package and pkg-config file; the software
# board beside it, its drop-in vendor library in a folder of its own, so that a machine with a real
# board never loads it by accident; the pages. Each file belongs to one component, and each component
# is a Debian package (cmake/Packages.cmake):
#
#   library        libvelazcemdapi3
#   development    libvelazcemdapi-dev
#   board          velazcemdapi-board
#   documentation  velazcemdapi-doc
#
# A program is installed by one line, velazce_install_program(TARGET), here or in its own folder.
#
# Who finds which libenyx-hw-c.so.5. The loader asks LD_LIBRARY_PATH first, then the run path of the
# file that needs the library (of that file alone), then the machine's own folders.
# - libVelaZceMdApi.so has no run path where the software board is built: an application gets the
#   vendor's library as installed on its machine, or what LD_LIBRARY_PATH names; zce-board-run sets
#   that for one command. Where a vendor's library was linked that is in no folder of the machine's,
#   the run path names its folder.
# - An installed program that receives (zce-recv) needs libenyx-hw-c.so.5 itself and finds the
#   software board's by its own run path. LD_LIBRARY_PATH with the vendor's folder goes before.
include(CMakePackageConfigHelpers)

set(VELAZCE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelaZceMdApi)
set(VELAZCE_BOARD_LIBDIR ${CMAKE_INSTALL_LIBDIR}/zce-board)
set(VELAZCE_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/VelaZceMdApi)
file(RELATIVE_PATH VELAZCE_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
add_custom_target(installed) # all that is installed, and nothing else

# velazce_install_program(TARGET...): to bin/. What links the library finds it, and the software
# board's library, from its own place.
function(velazce_install_program)
  foreach(target ${ARGN})
    get_target_property(libraries ${target} LINK_LIBRARIES)
    if("VelaZceMdApi::VelaZceMdApi" IN_LIST libraries OR "VelaZceMdApi" IN_LIST libraries)
      set(path "$ORIGIN/${VELAZCE_BIN_TO_LIB}")
      if(TARGET enyx-hw-c)
        list(APPEND path "$ORIGIN/${VELAZCE_BIN_TO_LIB}/zce-board")
        target_link_libraries(${target} PRIVATE enyx-hw-c)
        target_link_options(${target} PRIVATE LINKER:--no-as-needed)
      endif()
      set_target_properties(${target} PROPERTIES INSTALL_RPATH "${path}")
    endif()
    add_dependencies(installed ${target})
  endforeach()
  install(TARGETS ${ARGN} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT board)
endfunction()

# The library.
set(VELAZCE_VENDOR_DIR "")
if(ENYX_HW_LIBRARY)
  get_filename_component(VELAZCE_VENDOR_DIR "${ENYX_HW_LIBRARY}" DIRECTORY)
  if(VELAZCE_VENDOR_DIR IN_LIST CMAKE_C_IMPLICIT_LINK_DIRECTORIES)
    set(VELAZCE_VENDOR_DIR "")
  endif()
endif()
set_target_properties(VelaZceMdApi PROPERTIES INSTALL_RPATH "${VELAZCE_VENDOR_DIR}")
add_dependencies(installed VelaZceMdApi)
install(TARGETS VelaZceMdApi EXPORT VelaZceMdApiTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(FILES include/IVelaZceMdApi.h include/VelaZceUtils.h include/VelaZceExport.h
              board/include/ZceBoardMsg.h board/include/ZceBoardState.h capture/ZceCapture.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT VelaZceMdApiTargets NAMESPACE VelaZceMdApi::
        DESTINATION ${VELAZCE_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/VelaZceMdApiConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfig.cmake
                              INSTALL_DESTINATION ${VELAZCE_CMAKE_DIR}
                              PATH_VARS VELAZCE_BOARD_LIBDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfigVersion.cmake
        DESTINATION ${VELAZCE_CMAKE_DIR} COMPONENT development)
# The tree may be moved: the package finds its prefix from its own place.
file(RELATIVE_PATH VELAZCE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
set(VELAZCE_PC_LINK_DIR "\${boardlibdir}")
if(VELAZCE_VENDOR_DIR)
  set(VELAZCE_PC_LINK_DIR "${VELAZCE_VENDOR_DIR}")
endif()
configure_file(cmake/velazcemdapi.pc.in ${CMAKE_CURRENT_BINARY_DIR}/velazcemdapi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velazcemdapi.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The software board and the programs. The recorder and the watch stand in front of either library.
install(TARGETS zce-record zce-watch-preload
        LIBRARY DESTINATION ${VELAZCE_BOARD_LIBDIR} COMPONENT board)
add_dependencies(installed zce-record zce-watch-preload)
install(FILES tools/wireshark/zce.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/zce-board COMPONENT board)
if(NOT ENYX_HW_LIBRARY)
  install(TARGETS enyx-hw-c
          LIBRARY DESTINATION ${VELAZCE_BOARD_LIBDIR} COMPONENT board NAMELINK_SKIP)
  add_dependencies(installed enyx-hw-c)
  configure_file(tools/zce-board-run.in ${CMAKE_BINARY_DIR}/zce-board-run @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                  WORLD_READ WORLD_EXECUTE)
  install(PROGRAMS ${CMAKE_BINARY_DIR}/zce-board-run
          DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT board)
endif()
foreach(program zce-board zce-top zce-check zce-bin zce-capture zce-watch zce-relay zce-recv)
  if(TARGET ${program})
    velazce_install_program(${program})
  endif()
endforeach()

# Pages and examples, beside each other as in the source tree: their links hold.
install(FILES README.md README.zh.md CHANGELOG.md CONTRIBUTING.md LICENSE
        DESTINATION ${VELAZCE_DOC_DIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${VELAZCE_DOC_DIR} COMPONENT documentation
        PATTERN Doxyfile.in EXCLUDE PATTERN reference.dox EXCLUDE)
install(DIRECTORY examples DESTINATION ${VELAZCE_DOC_DIR} COMPONENT documentation
        PATTERN CMakeLists.txt EXCLUDE)
include(cmake/Manuals.cmake)

# What the last cmake --install of this build folder has put somewhere is removed again.
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/Uninstall.cmake
                  WORKING_DIRECTORY ${CMAKE_BINARY_DIR} VERBATIM)
