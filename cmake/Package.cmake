# The Debian packages, by `cpack` in the build folder: schedulehelper (component runtime) and schedulehelper-dev
# (development). Built by scripts/package, which says what makes them the same bytes each time.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  return()  # elsewhere Debian wants no package's files
endif()
set(deb ${PROJECT_SOURCE_DIR}/packaging/deb)
set(doc ${CMAKE_INSTALL_DATADIR}/doc)

# What every package of Debian has in its folder of documents.
foreach(package_component schedulehelper:runtime schedulehelper-dev:development)
  string(REPLACE ":" ";" package_component ${package_component})
  list(POP_FRONT package_component package component)
  configure_file(${deb}/changelog ${CMAKE_BINARY_DIR}/deb/changelog.Debian COPYONLY)
  configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_BINARY_DIR}/deb/changelog COPYONLY)
  gzipped(changelog-${component} ${doc}/${package} ${component}
    ${CMAKE_BINARY_DIR}/deb/changelog.Debian ${CMAKE_BINARY_DIR}/deb/changelog)
  install(FILES ${deb}/copyright DESTINATION ${doc}/${package} COMPONENT ${component})
  if(EXISTS ${deb}/${package}.lintian-overrides)
    install(FILES ${deb}/${package}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
      RENAME ${package} COMPONENT ${component})
  endif()
endforeach()

# The units that are enabled for every user: those that say by what they want to be started.
set(UNITS)
foreach(unit ${units})
  file(STRINGS ${unit} installable REGEX "^\\[Install\\]$")
  if(installable)
    cmake_path(GET unit STEM LAST_ONLY name)  # without .in
    list(APPEND UNITS ${name})
  endif()
endforeach()
list(JOIN UNITS " " UNITS)
set(control)
foreach(script postinst prerm postrm)
  configure_file(${deb}/${script}.in ${CMAKE_BINARY_DIR}/deb/${script} @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  list(APPEND control ${CMAKE_BINARY_DIR}/deb/${script})
endforeach()
# What lies in /etc is the administrator's to change, and kept at an upgrade.
set(conffiles)
foreach(entry ${entries})
  cmake_path(GET entry STEM LAST_ONLY name)
  string(APPEND conffiles /etc/xdg/autostart/${name} "\n")
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/deb/conffiles CONTENT "${conffiles}")
list(APPEND control ${CMAKE_BINARY_DIR}/deb/conffiles)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME schedulehelper)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_PACKAGE_CONTACT "Schedule helper maintainers <schedulehelper@tarnwick.example>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME schedulehelper)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "starts a recording application in time for its schedules
The schedule helper keeps the recording schedules of a main application,
Quillo, and starts it again ten seconds before each one's time. It outlives
the main application; its schedules survive crashes and power failures.
While nothing is due it doesn't wake at all.
.
Beside the helper this package contains schedulectl, its command line, and a
stand-in for the main application.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${control}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME schedulehelper-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "library below the schedule helper - development files
Static libraries and headers of the library that the schedule helper stands on
(prefix L): texts, dates, files, threads, sockets, archives, and the messages
that the helper is told schedules by.
.
CMake finds them as the package schedulehelper, pkg-config by the same name.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libplist-dev)
include(CPack)
