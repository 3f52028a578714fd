# cmake --install: the library with its headers, its CMake package and pkg-config file; the software
# board beside it, its drop-in vendor library in a folder of its own, so that a machine with a real
# board never loads it by accident.
include(CMakePackageConfigHelpers)

set(VELAZCE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelaZceMdApi)
set(VELAZCE_BOARD_LIBDIR ${CMAKE_INSTALL_LIBDIR}/zce-board)

install(TARGETS VelaZceMdApi EXPORT VelaZceMdApiTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/IVelaZceMdApi.h include/VelaZceUtils.h include/VelaZceExport.h
              board/include/ZceBoardMsg.h capture/ZceCapture.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT VelaZceMdApiTargets NAMESPACE VelaZceMdApi:: DESTINATION ${VELAZCE_CMAKE_DIR})
configure_package_config_file(cmake/VelaZceMdApiConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfig.cmake
                              INSTALL_DESTINATION ${VELAZCE_CMAKE_DIR}
                              PATH_VARS VELAZCE_BOARD_LIBDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VelaZceMdApiConfigVersion.cmake
        DESTINATION ${VELAZCE_CMAKE_DIR})
# The tree may be moved: the package finds its prefix from its own place.
file(RELATIVE_PATH VELAZCE_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/velazcemdapi.pc.in ${CMAKE_CURRENT_BINARY_DIR}/velazcemdapi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velazcemdapi.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The recorder stands in front of either library.
install(TARGETS zce-record LIBRARY DESTINATION ${VELAZCE_BOARD_LIBDIR})
install(FILES tools/wireshark/zce.lua DESTINATION ${CMAKE_INSTALL_DATADIR}/zce-board)
install(TARGETS zce-bin zce-check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NOT ENYX_HW_LIBRARY)
  # In the export set so that CMake finds it when an application is linked; its own place is not in
  # any search path.
  install(TARGETS enyx-hw-c EXPORT VelaZceMdApiTargets
          LIBRARY DESTINATION ${VELAZCE_BOARD_LIBDIR} NAMELINK_SKIP)
  install(TARGETS zce-board zce-top RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(VELAZCE_EXAMPLES)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/VelaZceMdApi/examples
          FILES_MATCHING PATTERN "*.cpp" PATTERN "*.ini" PATTERN "*.md" PATTERN "scenarios/*.txt")
  install(TARGETS zce-recv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
