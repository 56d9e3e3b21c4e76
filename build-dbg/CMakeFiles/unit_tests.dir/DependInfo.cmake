
# Consider dependencies only in project.
set(CMAKE_DEPENDS_IN_PROJECT_ONLY OFF)

# The set of languages for which implicit dependencies are needed:
set(CMAKE_DEPENDS_LANGUAGES
  )

# The set of dependency files which are needed:
set(CMAKE_DEPENDS_DEPENDENCY_FILES
  "/work/main/tests/jsparser_corpus_test.cpp" "CMakeFiles/unit_tests.dir/tests/jsparser_corpus_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/jsparser_corpus_test.cpp.o.d"
  "/work/main/tests/jsparser_test.cpp" "CMakeFiles/unit_tests.dir/tests/jsparser_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/jsparser_test.cpp.o.d"
  "/work/main/tests/jssimulate_test.cpp" "CMakeFiles/unit_tests.dir/tests/jssimulate_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/jssimulate_test.cpp.o.d"
  "/work/main/tests/jssimulate_values_test.cpp" "CMakeFiles/unit_tests.dir/tests/jssimulate_values_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/jssimulate_values_test.cpp.o.d"
  "/work/main/tests/main_number_test.cpp" "CMakeFiles/unit_tests.dir/tests/main_number_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/main_number_test.cpp.o.d"
  "/work/main/tests/main_test.cpp" "CMakeFiles/unit_tests.dir/tests/main_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/main_test.cpp.o.d"
  "/work/main/tests/stringtable_test.cpp" "CMakeFiles/unit_tests.dir/tests/stringtable_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/stringtable_test.cpp.o.d"
  "/work/main/tests/vrmlcompress_scan_test.cpp" "CMakeFiles/unit_tests.dir/tests/vrmlcompress_scan_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/vrmlcompress_scan_test.cpp.o.d"
  "/work/main/tests/vrmlcompress_test.cpp" "CMakeFiles/unit_tests.dir/tests/vrmlcompress_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/vrmlcompress_test.cpp.o.d"
  "/work/main/tests/vrmlparse_nodes_test.cpp" "CMakeFiles/unit_tests.dir/tests/vrmlparse_nodes_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/vrmlparse_nodes_test.cpp.o.d"
  "/work/main/tests/vrmlparse_tokenizer_test.cpp" "CMakeFiles/unit_tests.dir/tests/vrmlparse_tokenizer_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/vrmlparse_tokenizer_test.cpp.o.d"
  "/work/main/tests/vrmlparse_values_test.cpp" "CMakeFiles/unit_tests.dir/tests/vrmlparse_values_test.cpp.o" "gcc" "CMakeFiles/unit_tests.dir/tests/vrmlparse_values_test.cpp.o.d"
  )

# Targets to which this target links.
set(CMAKE_TARGET_LINKED_INFO_FILES
  "/work/main/build-dbg/CMakeFiles/worldpare_core.dir/DependInfo.cmake"
  )

# Fortran module output directory.
set(CMAKE_Fortran_TARGET_MODULE_DIR "")
