# enyx_hw_header: the declaration of the vendor's C calls, src/DrvEnyx/enyxHw.h, by its own name, so
# that nothing else of src/ can be included by what links it.
set(ENYX_HW_INCLUDE_DIR ${CMAKE_CURRENT_BINARY_DIR}/enyx-hw/include)
configure_file(src/DrvEnyx/enyxHw.h ${ENYX_HW_INCLUDE_DIR}/DrvEnyx/enyxHw.h COPYONLY)
add_library(enyx_hw_header INTERFACE)
target_include_directories(enyx_hw_header INTERFACE ${ENYX_HW_INCLUDE_DIR})
