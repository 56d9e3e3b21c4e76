#!/bin/sh
# Module boundaries: the run heap includes no other module in its header, the
# string table only the run heap, main.h no scene header, and the script
# modules no VRML header.
cd "$(dirname "$0")/../compression" || exit 2
status=0
forbid() {
  files=$1
  pattern=$2
  if grep -n -E "#include \"($pattern)\"" $files 2>/dev/null; then
    echo "forbidden include above"
    status=1
  fi
}
forbid "runheap.h" "main\.h|stringtable\.h|vrml.*\.h|js.*\.h"
forbid "stringtable.h stringtable.cpp" "main\.h|vrml.*\.h|js.*\.h"
forbid "main.h" "vrml.*\.h|js.*\.h"
forbid "$(ls js*.h js*.cpp 2>/dev/null)" "vrml.*\.h"
exit $status
