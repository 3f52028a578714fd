# Debian's libpcap-dev comes without a CMake package.
find_path(PCAP_INCLUDE_DIR pcap/pcap.h REQUIRED)
find_library(PCAP_LIBRARY pcap REQUIRED)
add_library(pcap::pcap UNKNOWN IMPORTED)
set_target_properties(pcap::pcap PROPERTIES IMPORTED_LOCATION ${PCAP_LIBRARY}
                                            INTERFACE_INCLUDE_DIRECTORIES ${PCAP_INCLUDE_DIR})
