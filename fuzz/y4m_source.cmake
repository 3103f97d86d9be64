# YUV4MPEG2 files as evc-encode's mapped reader takes them (libavformat itself is not instrumented).
if(TARGET evc_tools)
  evc_add_fuzzer(fuzz_y4m_source SOURCES ${CMAKE_CURRENT_LIST_DIR}/y4m_source.cpp DEPS evc_tools PRIVATE_OF evc_tools
                 INSTRUMENT evc_tools)
endif()
