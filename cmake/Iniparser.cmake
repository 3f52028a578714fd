# Debian's libiniparser-dev 4.1 comes without a CMake package or a pkg-config file.
find_path(INIPARSER_INCLUDE_DIR iniparser.h PATH_SUFFIXES iniparser REQUIRED)
find_library(INIPARSER_LIBRARY iniparser REQUIRED)
add_library(iniparser::iniparser UNKNOWN IMPORTED)
set_target_properties(iniparser::iniparser PROPERTIES
                      IMPORTED_LOCATION ${INIPARSER_LIBRARY}
                      INTERFACE_INCLUDE_DIRECTORIES ${INIPARSER_INCLUDE_DIR})

# iniparser_guarded: the same library's static archive, whose calls for memory and for the file go
# to src/DataType/ZceIniGuard.cpp. iniparser 4.1 itself follows the null pointer of an allocation
# that failed, and takes a read error for the end of the file. stderr goes there too: the archive's
# way to reach it is a program's, not a shared library's.
find_library(INIPARSER_ARCHIVE libiniparser.a REQUIRED)
set(INIPARSER_GUARDED ${CMAKE_BINARY_DIR}/lib/libiniparser-guarded.a)
set(redefinitions)
foreach(call malloc calloc free fopen fgets fclose stderr)
  list(APPEND redefinitions --redefine-sym ${call}=ZceIni_${call})
endforeach()
add_custom_command(OUTPUT ${INIPARSER_GUARDED}
                   COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/lib
                   COMMAND ${CMAKE_OBJCOPY} ${redefinitions} ${INIPARSER_ARCHIVE} ${INIPARSER_GUARDED}
                   DEPENDS ${INIPARSER_ARCHIVE}
                   COMMENT "Guarding ${INIPARSER_ARCHIVE}" VERBATIM)
add_custom_target(iniparser_guarded_archive DEPENDS ${INIPARSER_GUARDED})
add_library(iniparser_guarded STATIC IMPORTED GLOBAL)
set_target_properties(iniparser_guarded PROPERTIES
                      IMPORTED_LOCATION ${INIPARSER_GUARDED}
                      INTERFACE_INCLUDE_DIRECTORIES ${INIPARSER_INCLUDE_DIR})
add_dependencies(iniparser_guarded iniparser_guarded_archive)
