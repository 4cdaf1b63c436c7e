# vh_add_library(name DIR dir DEPS targets...)
# One static library per subsystem; what it links is the only way it may
# reach another subsystem, so the dependency direction is enforced here.
function(vh_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# vh_add_test(name SOURCES files... LIBS targets... [LABELS labels...])
# A GoogleTest executable registered with CTest; every test runs with the
# shared test main (a QCoreApplication and a private HOME per test).
function(vh_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE vh_test_support ${ARG_LIBS})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
