file(REMOVE_RECURSE
  "CMakeFiles/worldpare_core.dir/compression/jsparser.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/jsparser.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/main.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/main.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/stringtable.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/stringtable.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/vrmlcascade.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/vrmlcascade.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/vrmlcompress.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/vrmlcompress.cpp.o.d"
  "CMakeFiles/worldpare_core.dir/compression/vrmlparse.cpp.o"
  "CMakeFiles/worldpare_core.dir/compression/vrmlparse.cpp.o.d"
  "libworldpare_core.a"
  "libworldpare_core.pdb"
)

# Per-language clean rules from dependency scanning.
foreach(lang CXX)
  include(CMakeFiles/worldpare_core.dir/cmake_clean_${lang}.cmake OPTIONAL)
endforeach()
