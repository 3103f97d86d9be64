# The frame channel needs the element classes, which need the EBML library and the media model.
if(TARGET evc_transport AND TARGET evc_ebml AND TARGET evc_media)
  evc_add_bench(frame_channel SOURCES ${CMAKE_CURRENT_LIST_DIR}/frame_channel.cpp DEPS evc_transport)
endif()
