# What `cmake --install` puts below the prefix, in two components. Nothing installed names the prefix but units and
# desktop entries, which are written when they are installed: any --prefix works.
#   runtime      the programs, their man pages, shell completions, units, what a desktop starts
#   development  libraries, headers, and how CMake and pkg-config find them
include(CMakePackageConfigHelpers)

# Bundles belong to no architecture's folder: the units and schedulectl name them, and there is one of each.
set(SCHEDULEHELPER_BUNDLES lib/schedulehelper)
set(SCHEDULEHELPER_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/schedulehelper)
set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/schedulehelper)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install_bundle(schedulehelper schedulehelper.app runtime)
install_bundle(Quillo Quillo.app runtime)
install(TARGETS schedulectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# gzipped(TARGET FOLDER COMPONENT FILE...): FILEs go to FOLDER compressed, without name and time, so that the same file
# gives the same bytes.
function(gzipped target folder component)
  find_program(GZIP gzip REQUIRED)
  set(outputs)
  foreach(file ${ARGN})
    cmake_path(GET file FILENAME name)
    set(output ${CMAKE_BINARY_DIR}/${target}/${name}.gz)
    add_custom_command(OUTPUT ${output} DEPENDS ${file} VERBATIM
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/${target}
      COMMAND ${GZIP} -9nc ${file} > ${output})
    list(APPEND outputs ${output})
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${outputs})
  install(FILES ${outputs} DESTINATION ${folder} COMPONENT ${component})
endfunction()

foreach(section 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
  if(pages)
    gzipped(man${section} ${CMAKE_INSTALL_MANDIR}/man${section} runtime ${pages})
  endif()
endforeach()

install(FILES docs/timing.md docs/troubleshooting.md docs/store.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES docs/library.md docs/protocol.md DESTINATION ${CMAKE_INSTALL_DOCDIR}-dev COMPONENT development)

# Shell completions, which the build has schedulectl write.
set(completions ${CMAKE_BINARY_DIR}/completions)
install(FILES ${completions}/schedulectl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  COMPONENT runtime)
install(FILES ${completions}/_schedulectl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
  COMPONENT runtime)
install(FILES ${completions}/schedulectl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
  COMPONENT runtime)

# Units and desktop entries name programs by their paths, so they are written when they are installed.
file(GLOB units CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/systemd/*.in)
file(GLOB entries CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/autostart/*.in)
configure_file(${CMAKE_CURRENT_LIST_DIR}/InstallTemplates.cmake.in ${CMAKE_BINARY_DIR}/InstallTemplates.cmake @ONLY)
install(SCRIPT ${CMAKE_BINARY_DIR}/InstallTemplates.cmake COMPONENT runtime)

# Static libraries; their names are the system's to share with everybody, those of the targets are only ours.
foreach(library platform lbase helper)
  set_target_properties(${library} PROPERTIES OUTPUT_NAME schedulehelper-${library})
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${SCHEDULEHELPER_HEADERS}>)
endforeach()
install(TARGETS platform lbase helper EXPORT schedulehelper-targets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(EXPORT schedulehelper-targets NAMESPACE schedulehelper:: DESTINATION ${config_folder} COMPONENT development)
install(DIRECTORY src/ platform/include/ DESTINATION ${SCHEDULEHELPER_HEADERS} COMPONENT development
  FILES_MATCHING PATTERN *.h)

configure_package_config_file(packaging/schedulehelper-config.cmake.in schedulehelper-config.cmake
  INSTALL_DESTINATION ${config_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(schedulehelper-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/schedulehelper-config.cmake ${CMAKE_BINARY_DIR}/schedulehelper-config-version.cmake
  DESTINATION ${config_folder} COMPONENT development)

# pkg-config knows where its own file lies; the rest is told from there.
string(REGEX REPLACE "[^/]+" ".." PREFIX_FROM_PKGCONFIG ${pkgconfig_folder})
configure_file(packaging/schedulehelper.pc.in schedulehelper.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/schedulehelper.pc DESTINATION ${pkgconfig_folder} COMPONENT development)
