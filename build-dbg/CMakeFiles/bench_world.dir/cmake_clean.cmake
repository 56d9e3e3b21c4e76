file(REMOVE_RECURSE
  "CMakeFiles/bench_world.dir/bench/bench_world.cpp.o"
  "CMakeFiles/bench_world.dir/bench/bench_world.cpp.o.d"
  "bench_world"
  "bench_world.pdb"
)

# Per-language clean rules from dependency scanning.
foreach(lang CXX)
  include(CMakeFiles/bench_world.dir/cmake_clean_${lang}.cmake OPTIONAL)
endforeach()
