# add_bundle(TARGET INFO_PLIST NAME): lays the program of TARGET out as an application bundle,
# <build>/NAME/Contents/{Info.plist,Linux/TARGET}.
# install_bundle(TARGET NAME COMPONENT): the same below <prefix>/${SCHEDULEHELPER_BUNDLES}.
function(add_bundle target info_plist name)
  set(contents ${CMAKE_BINARY_DIR}/${name}/Contents)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${contents}/Linux)
  configure_file(${info_plist} ${contents}/Info.plist COPYONLY)
endfunction()

function(install_bundle target name component)
  set(contents ${SCHEDULEHELPER_BUNDLES}/${name}/Contents)
  install(TARGETS ${target} RUNTIME DESTINATION ${contents}/Linux COMPONENT ${component})
  install(FILES ${CMAKE_BINARY_DIR}/${name}/Contents/Info.plist DESTINATION ${contents} COMPONENT ${component})
endfunction()
