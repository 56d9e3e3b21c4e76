# One TimeSensor routed to 10000 PositionInterpolators, each routed to its own
# Transform: 20000 deliveries a round, no loop among them. Every node and route
# stays; the equal Shapes are shared, set_translation becomes translation.
awk 'BEGIN {
  n = 10000
  printf "#VRML V2.0 utf8\nDEF C TimeSensor { loop TRUE }\n" > "in.wrl"
  for (i = 0; i < n; i++) {
    printf "DEF T%d Transform { children Shape { geometry Box {} } }\n", i > "in.wrl"
    printf "DEF P%d PositionInterpolator { key [0 1] keyValue [0 0 0 %d.5 0 0] }\n", i, i > "in.wrl"
    printf "ROUTE C.fraction_changed TO P%d.set_fraction\n", i > "in.wrl"
    printf "ROUTE P%d.value_changed TO T%d.set_translation\n", i, i > "in.wrl"
  }
  printf "#VRML V2.0 utf8\nDEF C TimeSensor{\nloop TRUE}" > "expected.wrl"
  for (i = 0; i < n; i++) {
    if (i == 0) printf "DEF T0 Transform{\nchildren DEF A Shape{\ngeometry Box{}}}" > "expected.wrl"
    else printf "DEF T%d Transform{\nchildren USE A}", i > "expected.wrl"
    # a number is written without its leading zero: .5
    printf "DEF P%d PositionInterpolator{\nkey[0 1]\nkeyValue[0 0 0 %s.5 0 0]}", i, i ? i : "" > "expected.wrl"
  }
  for (i = 0; i < n; i++) printf "\nROUTE C.fraction_changed TO P%d.set_fraction", i > "expected.wrl"
  for (i = 0; i < n; i++) printf "\nROUTE P%d.value_changed TO T%d.translation", i, i > "expected.wrl"
}'
