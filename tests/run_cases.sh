#!/bin/sh
# Runs every golden case: tests/cases/<case>/ holds the arguments (`args`,
# always writing to out.wrl), the input files, and what must come out:
# `expected.status`, `expected.stderr` (absent: empty), `expected.stdout`
# (absent: empty) and `expected.wrl` (absent: no out.wrl may be left, or a
# pre-existing out.wrl stays unchanged). A case may hold `generate.sh`, run in
# the work directory first, for inputs too large to keep. The number behind
# "File: " and "Line: " in a check report is not compared.
tool=$1
cases=$(cd "$2" && pwd)
failed=0
count=0
normalize() { sed 's/, File: .*, Line: [0-9]*:/, File: #, Line: #:/' "$1"; }
for dir in "$cases"/*/; do
  name=$(basename "$dir")
  work=$(mktemp -d)
  (cd "$dir" && find . -maxdepth 1 -type f ! -name 'args' ! -name 'expected.*' \
    ! -name 'generate.sh' -exec cp {} "$work/" \;)
  [ -f "$dir/generate.sh" ] && (cd "$work" && sh "$dir/generate.sh")
  [ -f "$work/out.wrl" ] && cp "$work/out.wrl" "$work/.before"
  set -f
  (cd "$work" && "$tool" $(cat "$dir/args") >stdout 2>stderr; echo $? >status)
  set +f
  [ -f "$work/out.wrz" ] && gunzip -c "$work/out.wrz" >"$work/out.wrl" 2>/dev/null
  problems=""
  [ "$(cat "$work/status")" = "$(cat "$dir/expected.status")" ] ||
    problems="$problems status $(cat "$work/status");"
  expectedErr=$(mktemp)
  errFile="$dir/expected.stderr"; [ -f "$work/expected.stderr" ] && errFile="$work/expected.stderr"
  normalize "$errFile" 2>/dev/null >"$expectedErr"
  normalize "$work/stderr" | cmp -s - "$expectedErr" || problems="$problems stderr;"
  if [ -f "$dir/expected.stdout" ]; then
    cmp -s "$work/stdout" "$dir/expected.stdout" || problems="$problems stdout;"
  else
    [ -s "$work/stdout" ] && problems="$problems stdout not empty;"
  fi
  if [ -f "$dir/expected.wrl" ]; then
    cmp -s "$work/out.wrl" "$dir/expected.wrl" || problems="$problems out.wrl;"
  elif [ -f "$work/expected.wrl" ]; then
    cmp -s "$work/out.wrl" "$work/expected.wrl" || problems="$problems out.wrl;"
  elif [ -f "$work/.before" ]; then
    cmp -s "$work/out.wrl" "$work/.before" || problems="$problems out.wrl changed;"
  else
    [ -e "$work/out.wrl" ] && problems="$problems out.wrl left behind;"
  fi
  count=$((count + 1))
  if [ -n "$problems" ]; then
    failed=$((failed + 1))
    echo "FAIL $name:$problems"
    echo "--- stderr:"; cat "$work/stderr"
    [ -f "$work/out.wrl" ] && { echo "--- out.wrl:"; head -40 "$work/out.wrl"; }
  fi
  rm -rf "$work" "$expectedErr"
done
echo "$((count - failed)) of $count golden cases passed"
[ "$failed" -eq 0 ]
