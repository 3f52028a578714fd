# Debian's libzstd-dev and libxxhash-dev come without a CMake package that both g++'s and clang's
# builds find. The static zstd: the recorder is loaded into applications that may have one of their
# own.
find_path(ZSTD_INCLUDE_DIR zstd.h REQUIRED)
find_library(ZSTD_LIBRARY NAMES libzstd.a zstd REQUIRED)
add_library(zstd::zstd UNKNOWN IMPORTED)
set_target_properties(zstd::zstd PROPERTIES IMPORTED_LOCATION ${ZSTD_LIBRARY}
                                            INTERFACE_INCLUDE_DIRECTORIES ${ZSTD_INCLUDE_DIR})
find_path(XXHASH_INCLUDE_DIR xxhash.h REQUIRED) # used as headers alone
add_library(xxhash::xxhash INTERFACE IMPORTED)
set_target_properties(xxhash::xxhash PROPERTIES
                      INTERFACE_INCLUDE_DIRECTORIES ${XXHASH_INCLUDE_DIR})
