#!/bin/sh
# Differential test of `worldPare --vrml97` on random worlds:
#   run.sh WORLDGEN WORLDPARE WORKDIR COUNT FIRST_SEED
# For each seed, worldgen writes WORKDIR/SEED.wrl (its features in
# SEED.features) and worldPare pares it into SEED.out.wrl, two seeds at a
# time; then equiv.mjs runs each world beside its output on the same events
# (its report in SEED.equiv). Prints the seeds whose worlds differ, whose
# output does not load, on which worldPare stopped, and whose input is faulty
# (it warns or does not load: a fault of the generator), or whose output
# worldPare, run on it, does not write again byte for byte (SEED.out2.wrl),
# then how many worlds had each feature. Fails when any seed is in one of
# these five groups. DIFFTEST_OPTIONS holds more options for worldPare, as
# "--digits 6".
set -u
root=$(cd "$(dirname "$0")/../.." && pwd)

# One seed's world and its output; a world that worldPare does not write is
# judged here.
if [ "$1" = "--one" ]; then
  pare=$3 base=$4/$5
  "$2" "$5" >"$base.wrl" 2>"$base.features"
  "$pare" --vrml97 ${DIFFTEST_OPTIONS:-} "$base.wrl" "$base.out.wrl" >"$base.pare" 2>&1
  if [ $? -ne 1 ]; then
    echo "stops" >"$base.verdict"
  else
    echo "$base.wrl $base.out.wrl $base.equiv" >"$base.pair"
  fi
  exit 0
fi

# The verdict of a pair that equiv.mjs has run.
if [ "$1" = "--judge" ]; then
  pare=$2 base=${3%.pair}
  case $(tail -n 1 "$base.equiv" 2>/dev/null) in
    SAME*) verdict=same ;;
    "OUT DOES NOT LOAD"*) verdict=noload ;;
    "IN IS FAULTY"*) verdict=badinput ;;
    *) verdict=differs ;;
  esac
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
find "$work" -name '*.pair' | sort | xargs cat >"$work/pairs"
if [ -s "$work/pairs" ]; then
  node "$root/tests/difftest/equiv.mjs" --list "$work/pairs" || exit 1
fi
find "$work" -name '*.pair' | xargs -r -P 2 -I{} sh "$0" --judge "$pare" {}

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
