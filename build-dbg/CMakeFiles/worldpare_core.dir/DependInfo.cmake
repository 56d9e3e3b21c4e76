
# Consider dependencies only in project.
set(CMAKE_DEPENDS_IN_PROJECT_ONLY OFF)

# The set of languages for which implicit dependencies are needed:
set(CMAKE_DEPENDS_LANGUAGES
  )

# The set of dependency files which are needed:
set(CMAKE_DEPENDS_DEPENDENCY_FILES
  "/work/main/compression/jsparser.cpp" "CMakeFiles/worldpare_core.dir/compression/jsparser.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/jsparser.cpp.o.d"
  "/work/main/compression/jssimulate.cpp" "CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.o.d"
  "/work/main/compression/main.cpp" "CMakeFiles/worldpare_core.dir/compression/main.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/main.cpp.o.d"
  "/work/main/compression/stringtable.cpp" "CMakeFiles/worldpare_core.dir/compression/stringtable.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/stringtable.cpp.o.d"
  "/work/main/compression/vrmlcascade.cpp" "CMakeFiles/worldpare_core.dir/compression/vrmlcascade.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/vrmlcascade.cpp.o.d"
  "/work/main/compression/vrmlcompress.cpp" "CMakeFiles/worldpare_core.dir/compression/vrmlcompress.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/vrmlcompress.cpp.o.d"
  "/work/main/compression/vrmlparse.cpp" "CMakeFiles/worldpare_core.dir/compression/vrmlparse.cpp.o" "gcc" "CMakeFiles/worldpare_core.dir/compression/vrmlparse.cpp.o.d"
  )

# Targets to which this target links.
set(CMAKE_TARGET_LINKED_INFO_FILES
  )

# Fortran module output directory.
set(CMAKE_Fortran_TARGET_MODULE_DIR "")
