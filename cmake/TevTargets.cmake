# SPDX-License-Identifier: BSD-3-Clause
# How this project's targets are made: flags in one place, a library per layer, a test per file.
find_package(OpenMP REQUIRED)
find_package(Threads REQUIRED)

add_library(tev_flags INTERFACE)
target_include_directories(tev_flags INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
target_compile_options(tev_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Werror
  -ffp-contract=off         # fused multiply-add is the business of the kernels whose tier has it
  -fvisibility=hidden)
if(TEV_SANITIZE)
  # -fsanitize=function would reject every call through a name: callers and workers share no C++ type.
  target_compile_options(tev_flags INTERFACE
    -fsanitize=${TEV_SANITIZE} -fno-sanitize=function -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tev_flags INTERFACE -fsanitize=${TEV_SANITIZE})
endif()

# What computes more than it calls: elsewhere the optimizer takes long over a sanitizer's checks, and would win nothing.
if(TEV_SANITIZE)
  set(TEV_COMPUTES -O1)
endif()

# tev_layer(<target> <sources>...): an object library of one layer.
function(tev_layer target)
  add_library(${target} OBJECT ${ARGN})
  target_link_libraries(${target} PUBLIC tev_flags OpenMP::OpenMP_CXX)
endfunction()

# tev_test(<name> SOURCES <file>... [LIBS <target>...] [NEEDS <target>...] [DEFINES <definition>...] [TIMEOUT <seconds>]
#   [EXPORTS] [SINK] [WHOLE_SECONDS] [ALONE]): a GoogleTest program, one ctest entry per test case. Its label is the
# folder it stands in, so `ctest -L sink` runs what covers sink/. EXPORTS: what it has is found by name. SINK: it starts
# the real one, TEV_SINK_PATH. WHOLE_SECONDS: not with the short ones of tests/support/short_seconds.cpp. ALONE: one thread
# does all, the thread sanitizer has nothing to see. Tests call more than they compute: the optimizer would take longer
# over them than they run. What they do compute is in tests/support/compiled.cpp and host/check.cpp.
function(tev_test name)
  cmake_parse_arguments(ARG "EXPORTS;SINK;WHOLE_SECONDS;ALONE" "TIMEOUT" "SOURCES;LIBS;NEEDS;DEFINES" ${ARGN})
  if(ARG_ALONE AND TEV_SANITIZE MATCHES "thread")
    return()
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  find_package(GTest REQUIRED)
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tev_flags ${ARG_LIBS} test_support GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_options(${name} PRIVATE ${OpenMP_CXX_FLAGS} -O0)
  if(TARGET prelude)
    target_precompile_headers(${name} REUSE_FROM prelude)
  endif()
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests ENABLE_EXPORTS ${ARG_EXPORTS})
  if(ARG_SINK)
    list(APPEND ARG_DEFINES TEV_SINK_PATH="$<TARGET_FILE:tev_sink>")
    list(APPEND ARG_NEEDS tev_sink)
  endif()
  target_compile_definitions(${name} PRIVATE ${ARG_DEFINES})
  if(ARG_NEEDS)
    add_dependencies(${name} ${ARG_NEEDS})
  endif()
  get_filename_component(label ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  if(NOT ARG_WHOLE_SECONDS)
    set(environment ENVIRONMENT LD_PRELOAD=${TEV_SHORT_SECONDS})
    add_dependencies(${name} short_seconds)
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name} TEST_PREFIX ${label}/ DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${label} TIMEOUT ${ARG_TIMEOUT} ${environment})
endfunction()
