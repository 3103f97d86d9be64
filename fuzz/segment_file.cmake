# Segment files as evc-inspect and the chunk join read them.
if(TARGET evc_inspect AND TARGET evc_tools)
  evc_add_fuzzer(fuzz_segment_file SOURCES ${CMAKE_CURRENT_LIST_DIR}/segment_file.cpp DEPS evc_inspect evc_tools
                 PRIVATE_OF evc_tools evc_media INSTRUMENT evc_inspect evc_tools evc_transport evc_ebml evc_media)
endif()
