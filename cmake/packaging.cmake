# Debian packages, built with `cpack -G DEB` in the build directory:
#   libqslave0     the library and the reference host libraries
#   libqslave-dev  the headers, qslave.pc and the example host program
#   qslave-tools   the qslave tool, its manual page and bash completion
# The libraries and the library's own headers are installed by their own
# directories without a component; the rules below put the same files into
# the packages' components, so `cmake --install` installs everything as
# before and each package gets its share.
set(QSLAVE_LIBRARY_TARGETS qslave qdb zutable_small cdispenser qdsp32)
install(TARGETS ${QSLAVE_LIBRARY_TARGETS}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libs NAMELINK_COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/src/slave.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qslave COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/src/qslave.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/examples/host_example.cpp
              ${PROJECT_SOURCE_DIR}/examples/README.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqslave-dev/examples COMPONENT dev)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qslave)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "qslave maintainers <qslave@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Colourant dispenser control library")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libs dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(CPACK_DEBIAN_LIBS_PACKAGE_NAME libqslave0)
set(CPACK_DEBIAN_LIBS_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1, libflxmlrpc1")
set(CPACK_COMPONENT_LIBS_DESCRIPTION
    "colourant dispenser control library\n libqslave.so drives colourant dispensers for a tinting application; with it\n come the reference host libraries (dBase tables, colourant data, a\n scriptable simulated dispenser).")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqslave-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libqslave0 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "colourant dispenser control library: development files\n The headers of libqslave and its host interface, qslave.pc for pkg-config\n and an example host program.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qslave-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "libqslave0 (= ${PROJECT_VERSION}), libreadline8, libcpp-httplib0.11")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "colourant dispenser control: the qslave tool\n qslave sets up tables, dispenses, checks levels, purges, reads the\n machine's status and error queue, serves a live levels page and runs a\n shell of commands on one dispenser.")

include(CPack)
