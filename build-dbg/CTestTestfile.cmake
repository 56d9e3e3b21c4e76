# CMake generated Testfile for 
# Source directory: /work/main
# Build directory: /work/main/build-dbg
# 
# This file includes the relevant testing commands required for 
# testing this directory and lists subdirectories to be tested as well.
add_test(unit_tests "/work/main/build-dbg/unit_tests")
set_tests_properties(unit_tests PROPERTIES  _BACKTRACE_TRIPLES "/work/main/CMakeLists.txt;44;add_test;/work/main/CMakeLists.txt;0;")
add_test(golden_cases "/work/main/tests/run_cases.sh" "/work/main/build-dbg/worldPare" "/work/main/tests/cases")
set_tests_properties(golden_cases PROPERTIES  _BACKTRACE_TRIPLES "/work/main/CMakeLists.txt;45;add_test;/work/main/CMakeLists.txt;0;")
add_test(module_boundaries "/work/main/tests/check_includes.sh")
set_tests_properties(module_boundaries PROPERTIES  _BACKTRACE_TRIPLES "/work/main/CMakeLists.txt;50;add_test;/work/main/CMakeLists.txt;0;")
