# Each codec's plug-in in this process against the same plug-in behind
# evc-service, and the echo plug-in's round trip for the transport alone.
if(TARGET evc_client AND TARGET evc_plugins AND TARGET evc_service_presets AND TARGET plugin_h264)
  evc_add_bench(encode_overhead SOURCES ${CMAKE_CURRENT_LIST_DIR}/encode_overhead.cpp
    DEPS evc_client evc_plugins evc_service_presets evc_media PRIVATE_OF evc_service_presets)
  add_dependencies(encode_overhead evc-service plugin_h264)
  foreach(codec hevc vp9 av1)
    if(TARGET plugin_${codec})
      add_dependencies(encode_overhead plugin_${codec})
    endif()
  endforeach()
  if(TARGET plugin_test_echo)
    add_dependencies(encode_overhead plugin_test_echo)
  endif()
endif()
