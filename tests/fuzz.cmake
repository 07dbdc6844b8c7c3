# Fuzzers. What reads bytes of others is fuzzed with libFuzzer, in the build with sanitizers: each
# shortly and always alike among the tests, and for five minutes with `scripts/test --fuzz`. What once
# was found stays in the folder of inputs.
set(xpc_sources "${PROJECT_SOURCE_DIR}/platform/gnustep/foundation/xpc/wire")
set(appkit_sources "${PROJECT_SOURCE_DIR}/platform/gnustep/appkit")

# pellmar_add_fuzzer(NAME RUNS runs SOURCES sources… LIBRARIES libraries… INCLUDES folders…)
function(pellmar_add_fuzzer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "RUNS" "SOURCES;LIBRARIES;INCLUDES")
  set(target ${name}_fuzzer)
  add_executable(${target} ${arg_SOURCES})
  target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  # Named itself: with -fsanitize=fuzzer the compiler would link the C++ library before the sanitizer's
  # shared runtime, which has to be the first.
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES} "${fuzzer_runtime}")
  target_include_directories(${target} PRIVATE ${arg_INCLUDES})
  # CMake writes no run path into programs that it links as Objective-C++.
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)

  # Named one by one: libFuzzer writes what it finds into a folder that it is given.
  file(GLOB inputs CONFIGURE_DEPENDS "${CMAKE_CURRENT_LIST_DIR}/fuzz/${name}/*")
  list(JOIN inputs "," inputs)
  set(inputs_file "${CMAKE_CURRENT_BINARY_DIR}/${name}_inputs")
  file(CONFIGURE OUTPUT "${inputs_file}" CONTENT "@inputs@" @ONLY)

  set(command ${target} -seed_inputs=@${inputs_file} -timeout=20 -rss_limit_mb=2048
    -artifact_prefix=${name}- -print_final_stats=1)
  set(dictionary "${CMAKE_CURRENT_LIST_DIR}/fuzz/${name}.dict")
  if(EXISTS "${dictionary}")
    list(APPEND command "-dict=${dictionary}")
  endif()
  add_test(NAME fuzz.${name} COMMAND ${command} -seed=1 -runs=${arg_RUNS})
  add_test(NAME fuzz.${name}.long CONFIGURATIONS Long COMMAND ${command} -max_total_time=300)
  set_tests_properties(fuzz.${name} PROPERTIES TIMEOUT 120)
  set_tests_properties(fuzz.${name}.long PROPERTIES TIMEOUT 600 LABELS fuzz RUN_SERIAL ON)
  set_tests_properties(fuzz.${name} fuzz.${name}.long PROPERTIES ENVIRONMENT
    "${PELLMAR_TEST_ENVIRONMENT}")
endfunction()

if(PELLMAR_SANITIZE MATCHES address)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.fuzzer-x86_64.a
    OUTPUT_VARIABLE fuzzer_runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  pellmar_add_fuzzer(frame RUNS 60000
    SOURCES
      fuzz/frame_fuzzer.cpp "${xpc_sources}/wire_decoder.cpp" "${xpc_sources}/wire_encoder.cpp"
    LIBRARIES pellmar_flags INCLUDES "${xpc_sources}")
  pellmar_add_fuzzer(object RUNS 40000
    SOURCES
      fuzz/object_fuzzer.mm "${xpc_sources}/object_coding.mm" "${xpc_sources}/signature.cpp"
      "${xpc_sources}/wire_decoder.cpp" "${xpc_sources}/wire_encoder.cpp"
    LIBRARIES platform_foundation PkgConfig::FFI INCLUDES "${xpc_sources}")
  pellmar_add_fuzzer(visual_format RUNS 40000
    SOURCES fuzz/visual_format_fuzzer.cpp "${appkit_sources}/layout/VisualFormat.cpp"
    LIBRARIES pellmar_flags INCLUDES "${appkit_sources}")
endif()

pellmar_add_node_test(fuzz.script fuzz/script_fuzz.test.mjs)
if(NOT PELLMAR_SANITIZE)
  add_test(NAME fuzz.script.long CONFIGURATIONS Long
    COMMAND "${NODE_EXECUTABLE}" --test "${CMAKE_CURRENT_SOURCE_DIR}/fuzz/script_fuzz.test.mjs")
  set_tests_properties(fuzz.script.long PROPERTIES TIMEOUT 3600 LABELS fuzz RUN_SERIAL ON ENVIRONMENT
    "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};FUZZ_CALLS=200000")
endif()
