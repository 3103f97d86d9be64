evc_add_bench(frame_channel SOURCES ${CMAKE_CURRENT_LIST_DIR}/frame_channel.cpp DEPS evc_transport PRIVATE_OF evc_client)
