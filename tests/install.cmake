# The installed copy: install the build into a temporary prefix, build
# examples/host_example.cpp against it with pkg-config, and run it (and the
# installed qslave) on tables written by the installed qslave.
if(TARGET qslave_cli)
  add_test(NAME install.host_example
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/cli/install_test.sh
                   ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
  set_tests_properties(install.host_example PROPERTIES
    ENVIRONMENT "QSLAVE_DATA=;QSLAVE_SIM=;QSLAVE_TRACE=;DSPDEBUG="
    TIMEOUT 600)
endif()
