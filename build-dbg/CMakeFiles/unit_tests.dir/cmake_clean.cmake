file(REMOVE_RECURSE
  "CMakeFiles/unit_tests.dir/tests/smoke_test.cpp.o"
  "CMakeFiles/unit_tests.dir/tests/smoke_test.cpp.o.d"
  "unit_tests"
  "unit_tests.pdb"
)

# Per-language clean rules from dependency scanning.
foreach(lang CXX)
  include(CMakeFiles/unit_tests.dir/cmake_clean_${lang}.cmake OPTIONAL)
endforeach()
