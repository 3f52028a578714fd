# Debian packages, by `cpack` in the build folder or scripts/package.sh: one for each component of
# cmake/Install.cmake. What only a package has (copyright, changelogs, exceptions for lintian) is in
# packaging/ and not installed by cmake --install.
#
# The packages hold this build, with the folders of cmake --install (usr/lib, not the folder of an
# architecture): what is packaged is what the tests have run.
set(VELAZCE_PACKAGE_REVISION 1)
set(VELAZCE_PACKAGE_VERSION ${PROJECT_VERSION}-${VELAZCE_PACKAGE_REVISION})
set(VELAZCE_PACKAGE_CONTACT "VelaZceMdApi maintainers <maintainers@velazcemdapi.example>" CACHE STRING
    "Whom the packages name as their maintainer")

set(VELAZCE_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(VELAZCE_PACKAGED ${CMAKE_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${VELAZCE_PACKAGED})
set(compressed "")
foreach(pair "packaging/changelog=changelog.Debian.gz" "CHANGELOG.md=changelog.gz")
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 from)
  list(GET pair 1 to)
  add_custom_command(OUTPUT ${VELAZCE_PACKAGED}/${to}
                     COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/${from} > ${VELAZCE_PACKAGED}/${to}
                     DEPENDS ${PROJECT_SOURCE_DIR}/${from} VERBATIM)
  list(APPEND compressed ${VELAZCE_PACKAGED}/${to})
endforeach()
add_custom_target(changelogs ALL DEPENDS ${compressed})
add_dependencies(installed changelogs)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velazcemdapi)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VELAZCE_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_SOURCE_DIR}/build/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_DEBIAN_PACKAGE_SOURCE velazcemdapi)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VELAZCE_PACKAGE_REVISION})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Both are the packages' own: libenyx-hw-c.so.5 is the board vendor's to provide, and no package here
# may stand for it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# velazce_package(NAME COMPONENT SECTION SUMMARY DESCRIPTION [FIELD VALUE]...): FIELD as CPack names it
# behind CPACK_DEBIAN_<group>_PACKAGE_. A line of "." begins a paragraph of the description.
macro(velazce_package name component section summary description)
  string(TOUPPER ${name} upper)
  foreach(part ${component} ${component}-package)
    string(TOUPPER ${part} part_upper)
    set(CPACK_COMPONENT_${part_upper}_GROUP ${name})
    list(APPEND CPACK_COMPONENTS_ALL ${part})
  endforeach()
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(fields ${ARGN})
  while(fields)
    list(POP_FRONT fields field value)
    set(CPACK_DEBIAN_${upper}_PACKAGE_${field} "${value}")
  endwhile()
  install(FILES ${VELAZCE_PACKAGING}/copyright ${compressed}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
          COMPONENT ${component}-package EXCLUDE_FROM_ALL)
  if(EXISTS ${VELAZCE_PACKAGING}/${name}.lintian-overrides)
    install(FILES ${VELAZCE_PACKAGING}/${name}.lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${name}
            COMPONENT ${component}-package EXCLUDE_FROM_ALL)
  endif()
endmacro()

velazce_package(libvelazcemdapi3 library libs
  "CZCE market data from an FPGA board"
  "Sets an FPGA board up that decodes the feeds of the Zhengzhou Commodity
Exchange, subscribes for its DMA channels, and hands each message to the
application's callback, on the application's own polling thread.
.
The library needs libenyx-hw-c.so.5 of the board's vendor, which is in no
package; velazcemdapi-board has a software board to take its place."
  SUGGESTS velazcemdapi-board)
set(CPACK_DEBIAN_LIBVELAZCEMDAPI3_PACKAGE_CONTROL_EXTRA
    ${VELAZCE_PACKAGING}/shlibs ${VELAZCE_PACKAGING}/symbols ${VELAZCE_PACKAGING}/triggers)
velazce_package(libvelazcemdapi-dev development libdevel
  "CZCE market data from an FPGA board - development files"
  "The headers, the CMake package VelaZceMdApi and the pkg-config file
velazcemdapi of libVelaZceMdApi.so.3, and the bodies of the software board's
messages."
  DEPENDS "libvelazcemdapi3 (= ${VELAZCE_PACKAGE_VERSION})"
  RECOMMENDS velazcemdapi-board SUGGESTS velazcemdapi-doc)
velazce_package(velazcemdapi-board board utils
  "software board for CZCE market data, and programs"
  "A drop-in for the C library of an FPGA board's vendor, in a folder of its own
so that no application loads it by accident, and zce-board, the process behind
it that plays the board and its exchange.
.
With it come a monitor, a receiver, checks of an INI file, a host and a cache
 file, a recorder of what an application receives, a program that looks at its
 recordings, a watch that tells Prometheus how an application fares, a relay
 that takes a board's messages to other machines through a NATS server, and a
 dissector for Wireshark."
  DEPENDS "libvelazcemdapi3 (= ${VELAZCE_PACKAGE_VERSION})"
  RECOMMENDS libfaketime SUGGESTS "velazcemdapi-doc, nats-server, tshark, gnuplot-nox")
velazce_package(velazcemdapi-doc documentation doc
  "CZCE market data from an FPGA board - pages and examples"
  "How to configure, operate and try the library libVelaZceMdApi.so.3, what the
software board does, and programs, INI files and scenarios to start from."
  ARCHITECTURE all)
include(CPack)
