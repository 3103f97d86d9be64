# Where an installation puts things, the way Debian lays them out: GNUInstallDirs
# (libraries in lib/<multiarch> when the prefix is /usr, else lib), the plug-ins'
# host bundle in LIBDIR/evc/Evc.app, the CMake package and the pkg-config files
# under LIBDIR, the presets in DATADIR/evc/presets. The installed programs and
# the client library find each other through the relative paths below, so an
# installation still works after `cmake --install --prefix` elsewhere.
include(GNUInstallDirs)

set(EVC_INSTALL_APPDIR ${CMAKE_INSTALL_LIBDIR}/evc)
set(EVC_INSTALL_PLUGINDIR ${EVC_INSTALL_APPDIR}/Evc.app/Contents/PlugIns)
set(EVC_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/evc)
set(EVC_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(EVC_INSTALL_PRESETDIR ${CMAKE_INSTALL_DATADIR}/evc/presets)

# evc_install_relative(var from to): the path from install folder `from` to
# `to` (both relative to the prefix, or absolute), into var.
function(evc_install_relative var from to)
  cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  file(RELATIVE_PATH relative ${from} ${to})
  set(${var} ${relative} PARENT_SCOPE)
endfunction()
# libevc-client.so looks for the service here, from its own folder;
evc_install_relative(EVC_BINDIR_FROM_LIBDIR ${CMAKE_INSTALL_LIBDIR} ${CMAKE_INSTALL_BINDIR})
# the service and evc-encode for the host bundle and the presets, from theirs.
evc_install_relative(EVC_APPDIR_FROM_BINDIR ${CMAKE_INSTALL_BINDIR} ${EVC_INSTALL_APPDIR})
evc_install_relative(EVC_PRESETDIR_FROM_BINDIR ${CMAKE_INSTALL_BINDIR} ${EVC_INSTALL_PRESETDIR})

# A folder as pkg-config spells it: under ${prefix} unless it is absolute.
function(evc_pkg_config_dir var dir)
  if(IS_ABSOLUTE ${dir})
    set(${var} ${dir} PARENT_SCOPE)
  else()
    set(${var} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()
