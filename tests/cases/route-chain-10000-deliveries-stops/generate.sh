# An interpolator and a chain of 10000 Transforms, each translation routed to
# the next. The second round of events makes no new record: its 10000th
# delivery, into the last Transform, is the loop limit.
awk 'BEGIN {
  n = 10000
  printf "#VRML V2.0 utf8\nDEF P PositionInterpolator { }\n" > "in.wrl"
  for (i = 0; i < n; i++) printf "DEF T%d Transform { }\n", i > "in.wrl"
  printf "ROUTE P.value_changed TO T0.translation\n" > "in.wrl"
  for (i = 1; i < n; i++) printf "ROUTE T%d.translation TO T%d.translation\n", i - 1, i > "in.wrl"
  printf "Error: Infinite or near infinite loop detected!\nStack dump:\n" > "expected.stderr"
  printf "  Simulating events from PositionInterpolator::P\n" > "expected.stderr"
  printf "  Simulating the value_changed event\n" > "expected.stderr"
  for (i = 0; i < n; i++) printf "  Event sent to Transform::T%d.translation\n", i > "expected.stderr"
}'
