# Pooled frame buffers against plain aligned allocation.
if(TARGET evc_media)
  evc_add_bench(buffer_pool SOURCES ${CMAKE_CURRENT_LIST_DIR}/buffer_pool.cpp DEPS evc_media PRIVATE_OF evc_media)
endif()
