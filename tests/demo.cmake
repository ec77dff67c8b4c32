# The README's first command, scripts/demo.sh, into a scratch prefix. It
# configures and builds the build directory itself, so it runs alone.
if(TARGET qslave_cli)
  add_test(NAME demo.tool_and_tables
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/cli/demo_test.sh
                   ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
  set_tests_properties(demo.tool_and_tables PROPERTIES RUN_SERIAL TRUE TIMEOUT 600)
endif()
