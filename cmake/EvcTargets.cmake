# Common compile settings for every evc target.
add_library(evc_options INTERFACE)
target_compile_options(evc_options INTERFACE -Wall -Wextra)
if(EVC_WERROR)
  target_compile_options(evc_options INTERFACE -Werror)
endif()
if(EVC_SANITIZE)
  target_compile_options(evc_options INTERFACE -fsanitize=${EVC_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(evc_options INTERFACE -fsanitize=${EVC_SANITIZE})
endif()

# evc_add_library(name SOURCES ... [DEPS ...]): one static library per source folder.
# The folder itself and include/ are on the include path of its users.
function(evc_add_library name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${A_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
  target_link_libraries(${name} PUBLIC evc_options ${A_DEPS} PRIVATE ${A_PRIVATE_DEPS})
  install(TARGETS ${name} ARCHIVE DESTINATION lib)
endfunction()

# evc_add_test(name SOURCES ... [DEPS ...]): a GoogleTest executable registered with CTest.
function(evc_add_test name)
  cmake_parse_arguments(A "" "TIMEOUT" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE evc_options ${A_DEPS} GTest::gtest GTest::gtest_main
                        Threads::Threads)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include
                             ${CMAKE_SOURCE_DIR}/tests)
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 120)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT ${A_TIMEOUT}
                       ENVIRONMENT "EVC_BUILD_DIR=${CMAKE_BINARY_DIR}")
endfunction()

# evc_add_plugin(name SOURCES ... [DEPS ...] [EXECUTABLE exe] [TEST_ONLY]): a plug-in
# bundle build/Evc.app/Contents/PlugIns/<name>.qv64 whose code is Contents/Linux/<exe>.
# TEST_ONLY bundles serve the test suite and are not installed.
function(evc_add_plugin name)
  cmake_parse_arguments(A "TEST_ONLY" "EXECUTABLE;BUNDLE" "SOURCES;DEPS" ${ARGN})
  if(NOT A_EXECUTABLE)
    set(A_EXECUTABLE ${name})
  endif()
  if(NOT A_BUNDLE)
    set(A_BUNDLE ${name}.qv64)
  endif()
  set(target plugin_${name})
  add_library(${target} MODULE ${A_SOURCES})
  target_link_libraries(${target} PRIVATE evc_options ${A_DEPS})
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/include)
  set_target_properties(${target} PROPERTIES
    PREFIX "" SUFFIX "" OUTPUT_NAME ${A_EXECUTABLE}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${EVC_PLUGINS_DIR}/${A_BUNDLE}/Contents/Linux)
  # Hidden visibility still lets template statics of the standard library out;
  # the version script keeps the four entry points the only exports.
  set(exports ${CMAKE_SOURCE_DIR}/cmake/plugin-exports.map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${exports})
  if(NOT A_TEST_ONLY)
    install(DIRECTORY ${EVC_PLUGINS_DIR}/${A_BUNDLE} DESTINATION lib/evc/Evc.app/Contents/PlugIns
            USE_SOURCE_PERMISSIONS)
  endif()
endfunction()

# evc_add_bench(name SOURCES ... [DEPS ...]): a Google Benchmark program under build/bin.
function(evc_add_bench name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  find_package(benchmark REQUIRED)
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE evc_options ${A_DEPS} benchmark::benchmark Threads::Threads)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
endfunction()
