# An encode session whose service is killed every N pictures: recovery time
# against a cold start, pictures re-sent and missing.
if(TARGET evc_client AND TARGET plugin_h264)
  add_executable(recovery ${CMAKE_CURRENT_LIST_DIR}/recovery.cpp)
  target_link_libraries(recovery PRIVATE evc_options evc_client evc_media)
  target_include_directories(recovery PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
  add_dependencies(recovery evc-service plugin_h264)
endif()
