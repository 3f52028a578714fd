# The target doxygen: pages of the headers that an application includes, in doc/html of the build folder.
# A warning is an error. Doxygen itself is looked for when the target is made, so that a build needs none.
configure_file(docs/Doxyfile.in ${PROJECT_BINARY_DIR}/doc/Doxyfile @ONLY)
add_custom_target(doxygen COMMAND doxygen ${PROJECT_BINARY_DIR}/doc/Doxyfile
                  WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
                  COMMENT "Reference of the headers: ${PROJECT_BINARY_DIR}/doc/html/index.html" VERBATIM)
