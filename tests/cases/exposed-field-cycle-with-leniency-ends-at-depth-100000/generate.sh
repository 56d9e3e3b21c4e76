# A.translation and B.translation routed to each other. Deliveries 1 and 2
# make the two records; delivery 10002, into B, is the loop limit, a warning
# under -l; delivery 100001, into A, stands 100000 deep and stops the run.
cat > in.wrl <<'WORLD'
#VRML V2.0 utf8
DEF P PositionInterpolator { }
DEF A Transform { }
DEF B Transform { }
ROUTE P.value_changed TO A.translation
ROUTE A.translation TO B.translation
ROUTE B.translation TO A.translation
WORLD
awk 'function dump(count) {
    printf "Stack dump:\n  Simulating events from PositionInterpolator::P\n" > "expected.stderr"
    printf "  Simulating the value_changed event\n" > "expected.stderr"
    for (i = 1; i <= count; i++)
      printf "  Event sent to Transform::%s.translation\n", (i % 2 ? "A" : "B") > "expected.stderr"
  }
  BEGIN {
    printf "Warning: Infinite or near infinite loop detected!\n" > "expected.stderr"
    dump(10002)
    printf "Assertion failed \"eventDepth < 100000\", File: vrmlcascade.cpp, Line: 1:\n" > "expected.stderr"
    dump(100001)
  }'
