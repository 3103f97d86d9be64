# Frame elements from the payload area, as the service reads a compress request.
if(TARGET evc_transport)
  evc_add_fuzzer(fuzz_frame_channel SOURCES ${CMAKE_CURRENT_LIST_DIR}/frame_channel.cpp DEPS evc_transport
                 INSTRUMENT evc_transport evc_ebml evc_media)
endif()
