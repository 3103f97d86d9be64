# Common compile settings for every evc target.
include(EvcPluginBundle)
add_library(evc_options INTERFACE)
target_compile_options(evc_options INTERFACE -Wall -Wextra)
if(EVC_WERROR)
  target_compile_options(evc_options INTERFACE -Werror)
endif()
if(EVC_SANITIZE)
  target_compile_options(evc_options INTERFACE -fsanitize=${EVC_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(evc_options INTERFACE -fsanitize=${EVC_SANITIZE})
  # Code that must know asks these: clang does not define gcc's __SANITIZE_ADDRESS__ and
  # __SANITIZE_THREAD__.
  if(EVC_SANITIZE MATCHES "address")
    target_compile_definitions(evc_options INTERFACE EVC_SANITIZE_ADDRESS)
  endif()
  if(EVC_SANITIZE MATCHES "thread")
    target_compile_definitions(evc_options INTERFACE EVC_SANITIZE_THREAD)
  endif()
  if(EVC_SANITIZE MATCHES "undefined")
    target_compile_definitions(evc_options INTERFACE EVC_SANITIZE_UNDEFINED)
  endif()
endif()

# evc_add_library(name SOURCES ... [PUBLIC_HEADERS ...] [DEPS ...] [PRIVATE_DEPS ...]): one static
# library per source folder. Its users see include/ and, spelled "folder/Header.h", only the
# headers named in PUBLIC_HEADERS (those that other folders use); the library's own sources also
# see the folder's other headers. Both sets are folders of links in the build tree, so a header
# that is not published cannot be reached from another folder: the build fails there.
function(evc_add_library name)
  cmake_parse_arguments(A "" "" "SOURCES;PUBLIC_HEADERS;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${A_SOURCES})
  evc_link_headers(${name} "${A_PUBLIC_HEADERS}" public_dir private_dir)
  target_include_directories(${name} PUBLIC ${public_dir} ${CMAKE_SOURCE_DIR}/include PRIVATE ${private_dir})
  target_link_libraries(${name} PUBLIC evc_options ${A_DEPS} PRIVATE ${A_PRIVATE_DEPS})
  file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set_property(GLOBAL APPEND PROPERTY EVC_FOLDER_LIBRARIES "${folder}=${name}")
endfunction()

# The libraries defined in folder or below it (ipc: evc_ipc and evc_ipc_details), into var.
function(evc_folder_libraries folder var)
  get_property(pairs GLOBAL PROPERTY EVC_FOLDER_LIBRARIES)
  set(libs)
  foreach(pair ${pairs})
    string(REPLACE "=" ";" pair ${pair})
    list(GET pair 0 libFolder)
    list(GET pair 1 lib)
    if(libFolder STREQUAL folder OR libFolder MATCHES "^${folder}/")
      list(APPEND libs ${lib})
    endif()
  endforeach()
  set(${var} ${libs} PARENT_SCOPE)
endfunction()

# Fills build/headers/<name>/public and .../private with links named folder/Header.h to the
# current folder's headers: the listed ones in public, every other one in private.
function(evc_link_headers name public_headers public_var private_var)
  file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(root ${CMAKE_BINARY_DIR}/headers/${name})
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root}/public/${folder} ${root}/private/${folder})
  file(GLOB headers RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  foreach(header ${public_headers})
    if(NOT header IN_LIST headers)
      message(FATAL_ERROR "${name}: public header ${folder}/${header} does not exist")
    endif()
  endforeach()
  foreach(header ${headers})
    if(header IN_LIST public_headers)
      set(side public)
    else()
      set(side private)
    endif()
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${header} ${root}/${side}/${folder}/${header} SYMBOLIC)
  endforeach()
  set_target_properties(${name} PROPERTIES EVC_PRIVATE_HEADERS ${root}/private)
  set(${public_var} ${root}/public PARENT_SCOPE)
  set(${private_var} ${root}/private PARENT_SCOPE)
endfunction()

# evc_see_private(target [PUBLIC] lib ...): target (a test, benchmark, fuzzer, test helper or a
# program of the library's own folder) may include the private headers of each lib; with PUBLIC
# so may the targets that link target (a test helper whose header needs them).
function(evc_see_private target)
  set(scope PRIVATE)
  foreach(lib ${ARGN})
    if(lib STREQUAL "PUBLIC")
      set(scope PUBLIC)
    else()
      target_include_directories(${target} ${scope} $<TARGET_PROPERTY:${lib},EVC_PRIVATE_HEADERS>)
    endif()
  endforeach()
endfunction()

# The libraries of the source folder that the current tests/ folder mirrors, into var.
function(evc_tested_folder_libraries var)
  file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR})
  string(REGEX REPLACE "/.*" "" folder "${folder}")
  evc_folder_libraries("${folder}" libs)
  set(${var} ${libs} PARENT_SCOPE)
endfunction()

# evc_add_test(name SOURCES ... [DEPS ...] [PRIVATE_OF lib ...] [TIMEOUT s]): a GoogleTest
# executable registered with CTest. It sees tests/, the public headers of what it links, the
# private headers of the folder it tests (tests/F tests the libraries of F and below) and those
# of the libraries named in PRIVATE_OF.
function(evc_add_test name)
  cmake_parse_arguments(A "" "TIMEOUT" "SOURCES;DEPS;PRIVATE_OF" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE evc_options ${A_DEPS} ${A_PRIVATE_OF} GTest::gtest GTest::gtest_main
                        Threads::Threads)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/tests)
  evc_tested_folder_libraries(own)
  evc_see_private(${name} ${own} ${A_PRIVATE_OF})
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 120)
  endif()
  # Labelled with the tested folder: ctest -L 'client|ipc|service' runs those layers' tests only.
  # Clients started by the tests find the test plug-ins' host bundle.
  file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR})
  string(REGEX REPLACE "/.*" "" folder "${folder}")
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT ${A_TIMEOUT} LABELS ${folder}
                       ENVIRONMENT "EVC_BUILD_DIR=${CMAKE_BINARY_DIR}"
                       ENVIRONMENT_MODIFICATION "EVC_HOST_BUNDLE=set:${EVC_TEST_HOST_BUNDLE_NAME}")
  # One target per label builds its tests and what they start, for runs of some layers only.
  if(NOT TARGET evc_tests_${folder})
    add_custom_target(evc_tests_${folder})
  endif()
  add_dependencies(evc_tests_${folder} ${name})
endfunction()

# evc_add_plugin(name SOURCES ... [DEPS ...] [EXECUTABLE exe] [TEST_ONLY]): a plug-in
# bundle build/Evc.app/Contents/PlugIns/<name>.qv64 whose code is Contents/Linux/<exe>,
# installed, and linked from the tests' host bundle. TEST_ONLY bundles serve the test
# suite: they go to the tests' host bundle only and are not installed.
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
  if(A_TEST_ONLY)
    set(plugins ${EVC_TEST_PLUGINS_DIR})
  else()
    set(plugins ${EVC_PLUGINS_DIR})
    set_property(GLOBAL APPEND PROPERTY EVC_PRODUCT_BUNDLES ${A_BUNDLE})
    file(CREATE_LINK ${plugins}/${A_BUNDLE} ${EVC_TEST_PLUGINS_DIR}/${A_BUNDLE} SYMBOLIC)
    install(DIRECTORY ${plugins}/${A_BUNDLE} DESTINATION ${EVC_INSTALL_PLUGINDIR} USE_SOURCE_PERMISSIONS)
  endif()
  evc_plugin_bundle(${target} EXECUTABLE ${A_EXECUTABLE} DIRECTORY ${plugins}/${A_BUNDLE}
                    EXPORTS ${CMAKE_SOURCE_DIR}/cmake/plugin-exports.map)
endfunction()

# evc_add_bench(name SOURCES ... [DEPS ...] [PRIVATE_OF lib ...]): a Google Benchmark program
# under build/bin.
function(evc_add_bench name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS;PRIVATE_OF" ${ARGN})
  find_package(benchmark REQUIRED)
  add_executable(${name} ${A_SOURCES})
  target_link_libraries(${name} PRIVATE evc_options ${A_DEPS} ${A_PRIVATE_OF} benchmark::benchmark
                        Threads::Threads)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/tests)
  evc_see_private(${name} ${A_PRIVATE_OF})
endfunction()
