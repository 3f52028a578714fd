# Debian's libiniparser-dev 4.1 comes without a CMake package or a pkg-config file.
find_path(INIPARSER_INCLUDE_DIR iniparser.h PATH_SUFFIXES iniparser REQUIRED)
find_library(INIPARSER_LIBRARY iniparser REQUIRED)
add_library(iniparser::iniparser UNKNOWN IMPORTED)
set_target_properties(iniparser::iniparser PROPERTIES
                      IMPORTED_LOCATION ${INIPARSER_LIBRARY}
                      INTERFACE_INCLUDE_DIRECTORIES ${INIPARSER_INCLUDE_DIR})
