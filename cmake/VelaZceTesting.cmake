# velazce_add_test(NAME SOURCES files... [LIBS targets...] [LABELS labels...])
# One test program; each of its test cases becomes a ctest of its own, in a process of its own, so
# that the library's process-wide state starts afresh every time.
include(GoogleTest)
function(velazce_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velazce_flags ${ARG_LIBS} GTest::gmock GTest::gtest
                                        GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
                       PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 120)
endfunction()
