file(REMOVE_RECURSE
  "CMakeFiles/worldPare.dir/compression/winmain.cpp.o"
  "CMakeFiles/worldPare.dir/compression/winmain.cpp.o.d"
  "worldPare"
  "worldPare.pdb"
)

# Per-language clean rules from dependency scanning.
foreach(lang CXX)
  include(CMakeFiles/worldPare.dir/cmake_clean_${lang}.cmake OPTIONAL)
endforeach()
