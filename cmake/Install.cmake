# Install tree and Debian package of the agent.
#
# `cmake --install build --prefix P` gives a tree the agent runs from. Its
# working directory is P/agent/work (the heartbeat ./LoggerAlive goes there),
# and the relative paths the agent uses resolve from it:
#   ../../utils/ETC/ShCmd                -> P/utils/ETC/ShCmd
#   ../../utils/INSTALL/recentlogfile.sh -> P/utils/INSTALL/recentlogfile.sh
#   ../aproc/shell/                      -> P/agent/aproc/shell/
# The installed configuration P/etc/columnlogs.conf is the example
# configuration with the real separator bytes, its diagnostic log in
# P/var/log/, its event files in P/var/out/ and its watched demo logs in
# P/var/logs/. The README's "Install tree" section shows the whole tree.
#
# The package (cpack -G DEB) installs the same tree under /opt/columnlogs and
# the systemd unit as /lib/systemd/system/columnlogs.service.

set(COLUMNLOGS_PACKAGE_PREFIX /opt/columnlogs)

install(TARGETS ColumnLogs RUNTIME DESTINATION bin)
if(TARGET ColumnTool)
  install(TARGETS ColumnTool RUNTIME DESTINATION bin)
endif()
install(PROGRAMS ${CMAKE_SOURCE_DIR}/utils/ETC/ShCmd DESTINATION utils/ETC)
install(PROGRAMS ${CMAKE_SOURCE_DIR}/utils/INSTALL/recentlogfile.sh DESTINATION utils/INSTALL)
install(DIRECTORY DESTINATION agent/work)
install(DIRECTORY DESTINATION agent/aproc/shell)
install(DIRECTORY DESTINATION var/log)
install(DIRECTORY DESTINATION var/out)
install(DIRECTORY DESTINATION var/lib)
install(DIRECTORY DESTINATION var/logs)
install(FILES ${CMAKE_SOURCE_DIR}/examples/columnlogs.conf.readable DESTINATION share/columnlogs/examples)
install(PROGRAMS ${CMAKE_SOURCE_DIR}/examples/demo-writer.sh DESTINATION share/columnlogs/examples)
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION share/doc/columnlogs)

# The configuration and the unit name absolute paths inside the tree, so they
# are written at install time, when the prefix is known. An existing
# configuration is kept: it is the operator's.
set(COLUMNLOGS_SOURCE_CODE "set(COLUMNLOGS_SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")")
install(CODE "${COLUMNLOGS_SOURCE_CODE}" COMPONENT tree)
install(CODE [[
  set(columnlogs_root "${CMAKE_INSTALL_PREFIX}")
  set(columnlogs_stage "$ENV{DESTDIR}${columnlogs_root}")

  set(columnlogs_conf "${columnlogs_stage}/etc/columnlogs.conf")
  if(EXISTS "${columnlogs_conf}")
    message(STATUS "Keeping: ${columnlogs_conf}")
  else()
    message(STATUS "Installing: ${columnlogs_conf}")
    file(READ "${COLUMNLOGS_SOURCE_DIR}/examples/columnlogs.conf.readable" columnlogs_text)
    # The example's own header explains its notation; the installed copy gets one
    # of its own, free of the notation, which it no longer uses.
    string(FIND "${columnlogs_text}" "\n\n" columnlogs_body)
    if(columnlogs_body GREATER -1)
      math(EXPR columnlogs_body "${columnlogs_body} + 1")
      string(SUBSTRING "${columnlogs_text}" ${columnlogs_body} -1 columnlogs_text)
    endif()
    string(REPLACE "@RUN@" "${columnlogs_root}/var" columnlogs_text "${columnlogs_text}")
    # In the package's prefix the status file goes where node_exporter's
    # textfile collector reads on Debian; elsewhere into the tree.
    if(columnlogs_root STREQUAL "/opt/columnlogs")
      string(REPLACE "@STATUS@" "/var/lib/prometheus/node-exporter" columnlogs_text "${columnlogs_text}")
    else()
      string(REPLACE "@STATUS@" "${columnlogs_root}/var" columnlogs_text "${columnlogs_text}")
    endif()
    string(ASCII 3 31 126 columnlogs_tilde)
    string(ASCII 3 31 124 columnlogs_bar)
    string(REPLACE "{~}" "${columnlogs_tilde}" columnlogs_text "${columnlogs_text}")
    string(REPLACE "{|}" "${columnlogs_bar}" columnlogs_text "${columnlogs_text}")
    file(WRITE "${columnlogs_conf}"
      "# ColumnLogs agent configuration. Multi-part values hold the separator bytes\n"
      "# 03 1F 7E and 03 1F 7C; read them with: ${columnlogs_root}/bin/ColumnTool decode ${columnlogs_root}/etc/columnlogs.conf\n"
      "# Write a readable version (\"{~}\", \"{|}\") and turn it into bytes with:\n"
      "#   ${columnlogs_root}/bin/ColumnTool encode READABLE ${columnlogs_root}/etc/columnlogs.conf\n"
      "# then check it with: ${columnlogs_root}/bin/ColumnTool check ${columnlogs_root}/etc/columnlogs.conf\n"
      "# The example below watches the demo logs in ${columnlogs_root}/var/logs/.\n"
      "${columnlogs_text}")
  endif()
]] COMPONENT tree)

# The unit inside the tree, for `systemctl link P/lib/systemd/system/columnlogs.service`.
install(CODE "${COLUMNLOGS_SOURCE_CODE}" COMPONENT treeunit)
install(CODE [[
  set(PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(columnlogs_unit "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/columnlogs.service")
  message(STATUS "Installing: ${columnlogs_unit}")
  configure_file("${COLUMNLOGS_SOURCE_DIR}/packaging/columnlogs.service.in" "${columnlogs_unit}" @ONLY)
  configure_file("${COLUMNLOGS_SOURCE_DIR}/packaging/columnlogs-collect.service.in"
                 "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system/columnlogs-collect.service" @ONLY)
]] COMPONENT treeunit)

# ---- Debian package ----
# The unit goes where systemd looks for units of packages; only the package
# installs it there (a plain install keeps it inside the tree, for
# `systemctl link`).
set(PREFIX ${COLUMNLOGS_PACKAGE_PREFIX})
configure_file(${CMAKE_SOURCE_DIR}/packaging/columnlogs.service.in
               ${CMAKE_BINARY_DIR}/packaging/columnlogs.service @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/packaging/columnlogs-collect.service.in
               ${CMAKE_BINARY_DIR}/packaging/columnlogs-collect.service @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/packaging/conffiles.in ${CMAKE_BINARY_DIR}/packaging/conffiles @ONLY)
unset(PREFIX)
install(FILES ${CMAKE_BINARY_DIR}/packaging/columnlogs.service DESTINATION /lib/systemd/system
        COMPONENT systemunit EXCLUDE_FROM_ALL)
install(FILES ${CMAKE_BINARY_DIR}/packaging/columnlogs-collect.service DESTINATION /lib/systemd/system
        COMPONENT systemunit EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME columnlogs)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "ColumnLogs")
set(CPACK_PACKAGE_CONTACT "ColumnLogs maintainers <columnlogs@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "column-oriented log monitor agent")
set(CPACK_PACKAGE_DESCRIPTION
    "Watches application log files, cuts matching lines into columns, applies numeric, text and date rules and leaves one event line per fired rule in spool files for a collector. Includes ColumnTool, which checks configurations, replays logs through the rules and shows event files.")
set(CPACK_PACKAGING_INSTALL_PREFIX ${COLUMNLOGS_PACKAGE_PREFIX})
# Install into a staging DESTDIR with the real prefix, so that the paths
# written at install time are the ones of the installed package.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${COLUMNLOGS_PACKAGE_PREFIX})
# One package made of the tree and the system unit; the unit inside the tree
# stays out of it, and the system unit out of a plain install.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified tree systemunit)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The shared libraries' versions come from dpkg-shlibdeps; the programs the
# agent and the maintainer scripts run are listed here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "gzip (>= 1.6), passwd (>= 1:4.5)")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/postinst ${CMAKE_SOURCE_DIR}/packaging/prerm ${CMAKE_SOURCE_DIR}/packaging/postrm
    ${CMAKE_BINARY_DIR}/packaging/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
