# Every target of the tree links velazce_flags: the warnings, and the sanitizers of this build.
add_library(velazce_flags INTERFACE)
target_compile_options(velazce_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
if(VELAZCE_SANITIZE)
  target_compile_options(velazce_flags INTERFACE
                         -fsanitize=${VELAZCE_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(velazce_flags INTERFACE -fsanitize=${VELAZCE_SANITIZE})
endif()
