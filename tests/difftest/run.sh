#!/bin/sh
# Differential test of `worldPare --vrml97` on random worlds:
#   run.sh WORLDGEN WORLDPARE WORKDIR COUNT FIRST_SEED
# For each seed, worldgen writes WORKDIR/SEED.wrl (its features in
# SEED.features), worldPare pares it into SEED.out.wrl, and vrml-equiv runs
# both worlds on the same events (its report in SEED.equiv); two seeds at a
# time. Prints the seeds whose worlds differ, whose output does not load,
# on which worldPare stopped, and whose input is faulty (it warns or does not
# load: a fault of the generator), or whose output worldPare, run on it,
# does not write again byte for byte (SEED.out2.wrl), then how many worlds
# had each feature. Fails when any seed is in one of these five groups.
# DIFFTEST_OPTIONS holds more options for worldPare, as "--digits 6".
set -u
root=$(cd "$(dirname "$0")/../.." && pwd)

if [ "$1" = "--one" ]; then
  pare=$3 base=$4/$5
  "$2" "$5" >"$base.wrl" 2>"$base.features"
  "$pare" --vrml97 ${DIFFTEST_OPTIONS:-} "$base.wrl" "$base.out.wrl" >"$base.pare" 2>&1
  status=$?
  if [ "$status" -ne 1 ]; then
    echo "stops" >"$base.verdict"
    exit 0
  fi
  node "$root/../shared/tools/vrml-equiv.mjs" --run --no-cge "$base.wrl" "$base.out.wrl" >"$base.equiv" 2>&1
  case $? in
    0) verdict=same ;;
    1) verdict=differs
       grep -q -e "OUT does not load" -e "^MISMATCH X_ITE on OUT" "$base.equiv" && verdict=noload ;;
    *) verdict=badinput ;;
  esac
  grep -q "^X_ITE warned about IN" "$base.equiv" && verdict=badinput
  if [ "$verdict" = same ]; then
    "$pare" --vrml97 ${DIFFTEST_OPTIONS:-} "$base.out.wrl" "$base.out2.wrl" >/dev/null 2>&1
    cmp -s "$base.out.wrl" "$base.out2.wrl" || verdict=unsettled
  fi
  echo "$verdict" >"$base.verdict"
  exit 0
fi

generator=$1 pare=$2 work=$3 count=$4 first=$5
rm -rf "$work"
mkdir -p "$work"
start=$(date +%s)
seq "$first" $((first + count - 1)) | xargs -P 2 -I{} sh "$0" --one "$generator" "$pare" "$work" {}

failed=0
for verdict in differs noload stops badinput unsettled; do
  seeds=$(grep -l -x "$verdict" "$work"/*.verdict 2>/dev/null | sed 's|.*/||; s|\.verdict$||' | sort -n)
  [ -z "$seeds" ] && continue
  failed=$((failed + $(echo "$seeds" | wc -l)))
  echo "$verdict ($(echo "$seeds" | wc -l)):"
  for seed in $seeds; do
    case $verdict in
      stops) why=$(grep -m1 -e "Assertion" -e "Error" -e "Infinite" "$work/$seed.pare") ;;
      unsettled) why=$(cmp "$work/$seed.out.wrl" "$work/$seed.out2.wrl" 2>&1) ;;
      *) why=$(tail -n 1 "$work/$seed.equiv") ;;
    esac
    echo "  $seed: $(echo "$why" | cut -c1-220)"
  done
done
echo "equivalent: $(grep -l -x same "$work"/*.verdict | wc -l) of $count worlds (seeds $first to $((first + count - 1))), $(($(date +%s) - start)) s"
echo "worlds with each feature:"
sed 's/^features://' "$work"/*.features | tr ' ' '\n' | grep . | sort | uniq -c | sort -rn |
  awk '{ printf "  %-24s %d\n", $2, $1 }'
[ "$failed" -eq 0 ]
