# The world of vrml97-clock-routed-to-10000-interpolators-runs-without-loop-message
# without options: each route of the clock sends its field, which reaches all
# 10000 routes, and set_fraction makes no record. The first sending's 10000th
# delivery, into the interpolator of the oldest route, is the loop limit.
awk 'BEGIN {
  n = 10000
  printf "#VRML V2.0 utf8\nDEF C TimeSensor { loop TRUE }\n" > "in.wrl"
  for (i = 0; i < n; i++) {
    printf "DEF T%d Transform { children Shape { geometry Box {} } }\n", i > "in.wrl"
    printf "DEF P%d PositionInterpolator { key [0 1] keyValue [0 0 0 %d.5 0 0] }\n", i, i > "in.wrl"
    printf "ROUTE C.fraction_changed TO P%d.set_fraction\n", i > "in.wrl"
    printf "ROUTE P%d.value_changed TO T%d.set_translation\n", i, i > "in.wrl"
  }
}'
