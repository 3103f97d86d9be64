# evc_plugin_bundle(target EXECUTABLE name DIRECTORY dir.qv64 EXPORTS map): makes a
# MODULE target the code of a plug-in bundle, dir.qv64/Contents/Linux/name, built
# with hidden visibility; the version script keeps the four entry points the
# only exports (hidden visibility alone still lets template statics of the
# standard library out).
function(evc_plugin_bundle target)
  cmake_parse_arguments(A "" "EXECUTABLE;DIRECTORY;EXPORTS" "" ${ARGN})
  set_target_properties(${target} PROPERTIES
    PREFIX "" SUFFIX "" OUTPUT_NAME ${A_EXECUTABLE}
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${A_DIRECTORY}/Contents/Linux)
  target_link_options(${target} PRIVATE -Wl,--version-script=${A_EXPORTS})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${A_EXPORTS})
endfunction()
