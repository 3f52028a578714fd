# velazce_add_test(NAME SOURCES files... [LIBS targets...] [LABELS label])
# The label is by default the name of the folder below tests/: unit or system.
# The target tests_<label> builds all programs of a label.
# One test program; each of its test cases becomes a ctest of its own, in a process of its own, so
# that the library's process-wide state starts afresh every time.
include(GoogleTest)
function(velazce_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velazce_flags ${ARG_LIBS} GTest::gmock GTest::gtest
                                        GTest::gtest_main Threads::Threads)
  # As they were compiled: link-time optimisation would pass by the calls that tests wrap.
  target_link_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-lto>)
  if(NOT ARG_LABELS)
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR})
    string(REGEX REPLACE "/.*" "" ARG_LABELS ${folder})
  endif()
  if(NOT TARGET tests_${ARG_LABELS})
    add_custom_target(tests_${ARG_LABELS})
  endif()
  add_dependencies(tests_${ARG_LABELS} ${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
                       PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 120)
endfunction()

# velazce_add_room_test(NAME SOURCES files... [LIBS targets...]): the tests of a room, with the label
# board. They find the headers of tests/support, and what other rooms' tests lend them under its
# whole path ("tests/memory/boardFixture.h").
function(velazce_add_room_test name)
  velazce_add_test(${name} ${ARGN} LABELS board)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}
                                             ${PROJECT_SOURCE_DIR}/tests/support)
endfunction()
