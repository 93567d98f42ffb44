# Each fuzz target's corpus replayed as a test through the target's entry, without libFuzzer,
# in every build with tests: an input that once broke an invariant stays in the corpus and
# keeps the fault from coming back.
foreach(name plist strings option_file untar note)
  add_executable(${name}_replay ${CMAKE_CURRENT_LIST_DIR}/${name}_fuzz.cpp ${CMAKE_CURRENT_LIST_DIR}/fuzz_checks.cpp
                 ${CMAKE_CURRENT_LIST_DIR}/scratch_dir.cpp ${CMAKE_CURRENT_LIST_DIR}/replay_main.cpp)
  target_include_directories(${name}_replay PRIVATE ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name}_replay PRIVATE bwk_install ZLIB::ZLIB)
  add_test(NAME FuzzReplay.${name} COMMAND ${name}_replay ${CMAKE_CURRENT_LIST_DIR}/corpus/${name})
endforeach()
