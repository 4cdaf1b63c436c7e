# Third-party headers that nearly every translation unit parses. Each target
# with several sources compiles them once into a precompiled header instead of
# once per file. Project headers stay out: they change too often.
set(VH_PCH_HEADERS
  <algorithm> <atomic> <chrono> <cstdint> <cstdio> <cstring> <filesystem>
  <fstream> <functional> <map> <memory> <mutex> <optional> <set> <sstream>
  <string> <string_view> <thread> <tuple> <utility> <vector>
  <nlohmann/json.hpp>
  <QByteArray> <QCoreApplication> <QObject> <QString> <QThread> <QTimer>)
set(VH_TEST_PCH_HEADERS <gtest/gtest.h>)

# vh_precompile_headers(target [TESTS])
# Gives `target` the precompiled header (with GoogleTest for TESTS). A target
# of one source gains nothing from it and is left alone.
function(vh_precompile_headers target)
  cmake_parse_arguments(ARG "TESTS" "" "" ${ARGN})
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  list(LENGTH sources count)
  if(NOT VH_PRECOMPILE_HEADERS OR count LESS 2)
    return()
  endif()
  set(headers ${VH_PCH_HEADERS})
  if(ARG_TESTS)
    list(APPEND headers ${VH_TEST_PCH_HEADERS})
  endif()
  target_precompile_headers(${target} PRIVATE ${headers})
endfunction()

# vh_add_library(name DIR dir DEPS targets...)
# One static library per subsystem; what it links is the only way it may
# reach another subsystem, so the dependency direction is enforced here.
function(vh_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  vh_precompile_headers(${name})
endfunction()

# vh_add_test(name SOURCES files... LIBS targets... [LABELS labels...])
# A GoogleTest executable registered with CTest; every test runs with the
# shared test main (a QCoreApplication and a private HOME per test). Its tests
# are also labelled with their folder, the layer ("layer:store"), so that
# `ctest -L '^layer:store$'` runs one layer.
function(vh_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE vh_test_support ${ARG_LIBS})
  vh_precompile_headers(${name} TESTS)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  get_filename_component(layer ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set_property(DIRECTORY PROPERTY LABELS layer:${layer})
  set_property(GLOBAL APPEND PROPERTY VH_TEST_LAYERS ${layer})
  set_property(GLOBAL APPEND PROPERTY VH_TESTS_${layer} ${name})
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()

# vh_add_layer_test_targets()
# A target vh_tests_<layer> per layer that builds that layer's test
# executables and what they need, for builds that run only some layers.
function(vh_add_layer_test_targets)
  get_property(layers GLOBAL PROPERTY VH_TEST_LAYERS)
  list(REMOVE_DUPLICATES layers)
  foreach(layer ${layers})
    get_property(tests GLOBAL PROPERTY VH_TESTS_${layer})
    add_custom_target(vh_tests_${layer})
    add_dependencies(vh_tests_${layer} ${tests})
  endforeach()
endfunction()
