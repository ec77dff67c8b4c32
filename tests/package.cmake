# The Debian packages: built with cpack, unpacked into a scratch root with
# dpkg -x, and the tool and the example used from there.
if(TARGET qslave_cli)
  add_test(NAME package.deb
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/cli/package_test.sh
                   ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION})
  set_tests_properties(package.deb PROPERTIES
    ENVIRONMENT "QSLAVE_DATA=;QSLAVE_SIM=;QSLAVE_TRACE=;DSPDEBUG="
    TIMEOUT 300)
endif()
