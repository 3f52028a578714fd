include(GoogleTest)

# A test's own lines run once: in a release build and under a sanitizer they are not optimised, which
# takes the half and more off their compile time. What is tested keeps the options of its build, and so
# does in a release build a test program marked OPTIMISED, which runs its lines a million times.
add_library(velazce_test_flags INTERFACE)
target_link_libraries(velazce_test_flags INTERFACE velazce_flags GTest::gmock GTest::gtest)
add_library(velazce_test_flags_once INTERFACE)
if(VELAZCE_SANITIZE)
  target_compile_options(velazce_test_flags_once INTERFACE -O0)
else()
  target_compile_options(velazce_test_flags_once INTERFACE $<$<CONFIG:Release>:-O0>)
endif()
target_link_libraries(velazce_test_flags_once INTERFACE velazce_test_flags)

# Quick: what most tests include is read once for a whole build instead of once for each file, and the
# files of a program are compiled sixteen at a time. A test includes what it uses all the same, and two
# files of a program have no name in common: the builds without it find what is missing.
option(VELAZCE_QUICK_TESTS "Compile the tests together, with precompiled headers" OFF)
set(CMAKE_UNITY_BUILD ${VELAZCE_QUICK_TESTS})
if(VELAZCE_QUICK_TESTS)
  add_library(velazce_test_pch OBJECT ${PROJECT_SOURCE_DIR}/tests/support/precompiled.cpp)
  target_link_libraries(velazce_test_pch PRIVATE velazce_test_flags_once)
  # As the test programs are compiled: g++ takes the header for no other options than its own.
  set_target_properties(velazce_test_pch PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(velazce_test_pch PRIVATE -fPIE)
  target_precompile_headers(velazce_test_pch PRIVATE
                            "$<$<COMPILE_LANGUAGE:CXX>:${PROJECT_SOURCE_DIR}/tests/support/precompiled.h>")
endif()

# velazce_add_test(NAME SOURCES files... [LIBS targets...] [LABELS label] [OPTIMISED] [LONG])
# One test program; each of its test cases becomes a ctest of its own, in a process of its own, so
# that the library's process-wide state starts afresh every time. The label is by default the name of
# the folder below tests/: unit or system. The target tests_<label> builds all programs of a label.
# LONG: its cases are started before the others, so that nobody waits for them at the end.
function(velazce_add_test name)
  cmake_parse_arguments(ARG "OPTIMISED;LONG" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set(flags velazce_test_flags_once)
  if(ARG_OPTIMISED AND NOT VELAZCE_SANITIZE)
    set(flags velazce_test_flags)
  endif()
  target_link_libraries(${name} PRIVATE ${flags} ${ARG_LIBS} GTest::gmock
                                        GTest::gtest GTest::gtest_main Threads::Threads)
  if(VELAZCE_QUICK_TESTS AND flags STREQUAL velazce_test_flags_once)
    target_precompile_headers(${name} REUSE_FROM velazce_test_pch)
    set(sources_in_c ${ARG_SOURCES})
    list(FILTER sources_in_c INCLUDE REGEX "\\.c$")
    set_source_files_properties(${sources_in_c} PROPERTIES SKIP_PRECOMPILE_HEADERS ON
                                                           SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
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
  set(cost 0)
  if(ARG_LONG)
    set(cost 20)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
                       PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 120 COST ${cost})
endfunction()

# velazce_own_new(TARGET): it brings its own operator new, which the ThreadSanitizer of clang has too.
# That one is taken: what needs the program's own is left out there (tests/support/sanitizers.h).
function(velazce_own_new target)
  if(VELAZCE_SANITIZE STREQUAL "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_link_options(${target} PRIVATE LINKER:--allow-multiple-definition)
  endif()
endfunction()

# velazce_add_room_test(NAME SOURCES files... [LIBS targets...]): the tests of a room, with the label
# board. They find the headers of tests/support, and what other rooms' tests lend them under its
# whole path ("tests/memory/boardFixture.h").
function(velazce_add_room_test name)
  velazce_add_test(${name} ${ARGN} LABELS board)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}
                                             ${PROJECT_SOURCE_DIR}/tests/support)
endfunction()
