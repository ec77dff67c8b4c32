# The command-line tool run as a process: one CTest test per
# tests/cli/test_cli_*.py (Python unittest under Debian's Python, which has
# python3-dbf and python3-dbfread). Adding a test file needs no change here.
if(TARGET qslave_cli)
  file(GLOB QSLAVE_CLI_TEST_SCRIPTS CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/cli/test_cli_*.py)
  foreach(script ${QSLAVE_CLI_TEST_SCRIPTS})
    get_filename_component(name ${script} NAME_WE)
    add_test(NAME cli.${name} COMMAND /usr/bin/python3 ${script})
    set_tests_properties(cli.${name} PROPERTIES
      ENVIRONMENT "QSLAVE_CLI=$<TARGET_FILE:qslave_cli>;PYTHONDONTWRITEBYTECODE=1"
      TIMEOUT 300)
  endforeach()
endif()
