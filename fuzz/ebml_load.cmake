# Element loading over untrusted bytes in a memory storage.
if(TARGET evc_ebml)
  evc_add_fuzzer(fuzz_ebml_load SOURCES ${CMAKE_CURRENT_LIST_DIR}/ebml_load.cpp DEPS evc_ebml PRIVATE_OF evc_ebml
                 INSTRUMENT evc_ebml)
endif()
