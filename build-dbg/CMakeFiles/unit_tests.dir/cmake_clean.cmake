file(REMOVE_RECURSE
  "CMakeFiles/unit_tests.dir/tests/jsparser_corpus_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/jsparser_corpus_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/jsparser_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/jsparser_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/jssimulate_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/jssimulate_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/jssimulate_values_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/jssimulate_values_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/main_number_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/main_number_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/main_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/main_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/stringtable_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/stringtable_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/vrmlcompress_scan_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/vrmlcompress_scan_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/vrmlcompress_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/vrmlcompress_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_nodes_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_nodes_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_tokenizer_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_tokenizer_test.cpp.o.d"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_values_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/vrmlparse_values_test.cpp.o.d"
  "unit_tests"
  "unit_tests.pdb"
)

# Per-language clean rules from dependency scanning.
foreach(lang CXX)
  include(CMakeFiles/unit_tests.dir/cmake_clean_${lang}.cmake OPTIONAL)
endforeach()
