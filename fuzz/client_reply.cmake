# What the client reads from a service it cannot trust: replies, listings, standard error.
if(TARGET evc_client)
  evc_add_fuzzer(fuzz_client_reply SOURCES ${CMAKE_CURRENT_LIST_DIR}/client_reply.cpp DEPS evc_client
                 PRIVATE_OF evc_client INSTRUMENT evc_client evc_transport evc_ebml evc_media)
endif()
