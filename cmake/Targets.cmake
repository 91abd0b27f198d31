# tolvera_library(NAME SOURCES ... LINK ...) and tolvera_executable(NAME OUTPUT name SOURCES ... LINK ...):
# a target of the project, with the warnings of the project.

include(GoogleTest)

function(tolvera_target NAME)
  target_compile_options(${NAME} PRIVATE ${TOLVERA_WARNINGS})
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/Sources)
  target_compile_definitions(${NAME} PRIVATE QT_NO_KEYWORDS)
  get_target_property(type ${NAME} TYPE)
  if(TOLVERA_SANITIZE AND type STREQUAL "EXECUTABLE")
    target_sources(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/SanitizerDefaults.cpp)
  endif()
endfunction()

function(tolvera_library NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${NAME} STATIC ${ARG_SOURCES})
  tolvera_target(${NAME})
  target_link_libraries(${NAME} PUBLIC ${ARG_LINK})
endfunction()

function(tolvera_executable NAME)
  cmake_parse_arguments(ARG "" "OUTPUT" "SOURCES;LINK" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  tolvera_target(${NAME})
  target_link_libraries(${NAME} PRIVATE ${ARG_LINK})
  set_target_properties(${NAME} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT}
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()

# tolvera_test(NAME SOURCES ... LINK ... [LABELS ...] [TIMEOUT seconds] [ONE_ENTRY]): a GoogleTest program. Each of
# its tests is one entry of ctest, in a process of its own. With ONE_ENTRY the whole program is one entry: for those
# that take long to start, with a sound server, an engine or Qt's windows.
function(tolvera_test NAME)
  cmake_parse_arguments(ARG "ONE_ENTRY" "TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  tolvera_target(${NAME})
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/Tests)
  target_link_libraries(${NAME} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest_main)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  set(properties TIMEOUT ${ARG_TIMEOUT})
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  if(ARG_ONE_ENTRY)
    add_test(NAME ${NAME} COMMAND ${NAME})
    set_tests_properties(${NAME} PROPERTIES ${properties})
  else()
    gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
  endif()
endfunction()

# tolvera_benchmark(NAME SOURCES ... LINK ...): a program that prints figures; no test depends on them.
function(tolvera_benchmark NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  tolvera_target(${NAME})
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/Tests)
  target_link_libraries(${NAME} PRIVATE ${ARG_LINK})
  set_target_properties(${NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/benchmarks)
endfunction()
