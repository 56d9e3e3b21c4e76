# A DEF name of 60000 characters on a Transform in a route cycle with B: the
# loop message dumps 10002 deliveries, every other one naming the node. Each
# such line keeps 1023 characters of its text, "Event sent to Transform::"
# and 998 of the name, and counts the 59014 left out: 1054 bytes, while a B
# line has 41. The dump, 5.5 MB, keeps the lines that fit in 256 KB at each
# end: the two lines before the events and deliveries 1 to 478 (261791
# bytes), deliveries 9524 to 10002 (261746 bytes), and the 9045 between go.
name=$(head -c 60000 /dev/zero | tr '\0' N)
cat > in.wrl <<WORLD
#VRML V2.0 utf8
DEF P PositionInterpolator { }
DEF $name Transform { }
DEF B Transform { }
ROUTE P.value_changed TO $name.translation
ROUTE $name.translation TO B.translation
ROUTE B.translation TO $name.translation
WORLD
awk 'function delivery(i) {
    if (i % 2 == 0) { print "  Event sent to Transform::B.translation"; return }
    printf "  Event sent to Transform::%s [... 59014 more characters]\n", substr(name, 1, 998)
  }
  BEGIN {
    name = "N"; while (length(name) < 998) name = name name
    print "Error: Infinite or near infinite loop detected!"
    print "Stack dump:"
    print "  Simulating events from PositionInterpolator::P"
    print "  Simulating the value_changed event"
    for (i = 1; i <= 478; i++) delivery(i)
    print "  [... 9045 lines left out]"
    for (i = 9524; i <= 10002; i++) delivery(i)
  }' > expected.stderr
