# Every target of the tree links velazce_flags: the warnings, and the sanitizers of this build.
add_library(velazce_flags INTERFACE)
target_compile_options(velazce_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC bug 105651: false alarms at "text" + std::string, optimised, in C++20.
  target_compile_options(velazce_flags INTERFACE -Wno-restrict)
endif()
if(VELAZCE_SANITIZE)
  target_compile_options(velazce_flags INTERFACE
                         -fsanitize=${VELAZCE_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(velazce_flags INTERFACE -fsanitize=${VELAZCE_SANITIZE})
endif()
if(VELAZCE_FUZZ)
  # Coverage for libFuzzer in everything; its main function is linked by fuzz/ alone. No check of
  # the type at each virtual call: it makes a start on a board take twice as long.
  target_compile_options(velazce_flags INTERFACE -fsanitize=fuzzer-no-link -fno-sanitize=vptr)
  target_link_options(velazce_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
