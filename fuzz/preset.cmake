# Preset documents as the service reads them (the XML library itself is not instrumented).
if(TARGET evc_service_presets)
  evc_add_fuzzer(fuzz_preset SOURCES ${CMAKE_CURRENT_LIST_DIR}/preset.cpp DEPS evc_service_presets
                 INSTRUMENT evc_service_presets)
endif()
