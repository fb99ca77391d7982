# add_bundle(TARGET INFO_PLIST NAME [OUTPUT_FOLDER]): lays the program of TARGET out as an application bundle,
# <build>/NAME/Contents/{Info.plist,Linux/TARGET}.
function(add_bundle target info_plist name)
  set(contents ${CMAKE_BINARY_DIR}/${name}/Contents)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${contents}/Linux)
  configure_file(${info_plist} ${contents}/Info.plist COPYONLY)
endfunction()
