evc_add_bench(ipc_roundtrip SOURCES ${CMAKE_CURRENT_LIST_DIR}/ipc_roundtrip.cpp DEPS evc_ipc)
