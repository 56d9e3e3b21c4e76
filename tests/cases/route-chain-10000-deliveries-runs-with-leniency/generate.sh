# The chain of route-chain-10000-deliveries-stops under -l: the loop message
# is a warning, and the world comes out whole, every DEF kept by its routes.
sh "$(dirname "$0")/../route-chain-10000-deliveries-stops/generate.sh"
sed -i '1s/^Error:/Warning:/' expected.stderr
awk 'BEGIN {
  n = 10000
  printf "#VRML V2.0 utf8\nDEF P PositionInterpolator {\n}\n" > "expected.wrl"
  for (i = 0; i < n; i++) printf "DEF T%d Transform {\n}\n", i > "expected.wrl"
  printf "ROUTE P.value_changed TO T0.translation\n" > "expected.wrl"
  for (i = 1; i < n; i++) printf "ROUTE T%d.translation TO T%d.translation\n", i - 1, i > "expected.wrl"
}'
