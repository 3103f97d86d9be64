# evc_add_plugin() for projects that use an installed evc (find_package(evc)).
#
#   evc_add_plugin(Name SOURCES a.cpp ... [LIBRARIES lib ...]
#                  [OUTPUT_DIRECTORY dir] [INSTALL_DESTINATION dir])
#
# Builds the compressor bundle dir/Name.qv64/Contents/Linux/Name (dir defaults
# to the current binary folder) from a MODULE target called Name that uses
# evc::plugin, with hidden visibility and the four entry points as its only
# exports. INSTALL_DESTINATION installs the bundle folder there:
# ${EVC_PLUGIN_INSTALL_DIR} (relative to the project's prefix, e.g.
# lib/x86_64-linux-gnu/evc/Evc.app/Contents/PlugIns under /usr) when the
# project installs into evc's prefix, ${EVC_PLUGIN_DIR} for that folder itself.
# The bundle's folder is left in the target's EVC_BUNDLE_DIR property.
include_guard(GLOBAL)
include(${CMAKE_CURRENT_LIST_DIR}/EvcPluginBundle.cmake)
set(EVC_PLUGIN_EXPORTS_MAP ${CMAKE_CURRENT_LIST_DIR}/plugin-exports.map)

function(evc_add_plugin name)
  cmake_parse_arguments(A "" "OUTPUT_DIRECTORY;INSTALL_DESTINATION" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT A_SOURCES)
    message(FATAL_ERROR "evc_add_plugin(${name}): no SOURCES")
  endif()
  if(NOT A_OUTPUT_DIRECTORY)
    set(A_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  endif()
  set(bundle ${A_OUTPUT_DIRECTORY}/${name}.qv64)
  add_library(${name} MODULE ${A_SOURCES})
  target_link_libraries(${name} PRIVATE evc::plugin ${A_LIBRARIES})
  evc_plugin_bundle(${name} EXECUTABLE ${name} DIRECTORY ${bundle} EXPORTS ${EVC_PLUGIN_EXPORTS_MAP})
  set_target_properties(${name} PROPERTIES EVC_BUNDLE_DIR ${bundle})
  if(A_INSTALL_DESTINATION)
    install(DIRECTORY ${bundle} DESTINATION ${A_INSTALL_DESTINATION} USE_SOURCE_PERMISSIONS)
  endif()
endfunction()
