# Debian's libnats-dev 3.4.1 has a CMake package that asks for a static library which is not in it.
find_path(NATS_INCLUDE_DIR nats/nats.h REQUIRED)
find_library(NATS_LIBRARY nats REQUIRED)
add_library(nats::nats UNKNOWN IMPORTED GLOBAL)
set_target_properties(nats::nats PROPERTIES IMPORTED_LOCATION ${NATS_LIBRARY}
                                            INTERFACE_INCLUDE_DIRECTORIES ${NATS_INCLUDE_DIR})
