# The world of vrml97-clock-routed-to-10000-interpolators-runs-without-loop-message
# without options: each route of the clock sends its field, which reaches all
# 10000 routes, and set_fraction makes no record. The first sending's 10000th
# delivery, into the interpolator of the oldest route, is the loop limit.
sh "$(dirname "$0")/../vrml97-clock-routed-to-10000-interpolators-runs-without-loop-message/generate.sh"
rm expected.wrl
