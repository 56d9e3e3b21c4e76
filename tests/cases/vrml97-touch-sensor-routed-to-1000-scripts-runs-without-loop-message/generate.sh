# One TouchSensor routed to 1000 Scripts, each sending what it gets to one
# PointLight: no loop, so the world runs and every Script and route stays.
awk 'BEGIN {
  n = 1000
  printf "#VRML V2.0 utf8\nDEF S TouchSensor {}\nShape { geometry Box {} }\nDEF L PointLight {}\n" > "in.wrl"
  for (i = 0; i < n; i++) {
    printf "DEF J%d Script { eventIn SFBool on eventOut SFBool out url \"javascript: function on(v) { out = v; }\" }\n", i > "in.wrl"
    printf "ROUTE S.isActive TO J%d.on\nROUTE J%d.out TO L.on\n", i, i > "in.wrl"
  }
  printf "#VRML V2.0 utf8\nDEF S TouchSensor{}Shape{\ngeometry Box{}}DEF L PointLight{}" > "expected.wrl"
  for (i = 0; i < n; i++) {
    printf "DEF J%d Script{\neventIn SFBool on\neventOut SFBool out\nurl\"javascript:\n", i > "expected.wrl"
    printf "function on(v) {\nout=v;\n}\n\"}" > "expected.wrl"
  }
  for (i = 0; i < n; i++) printf "\nROUTE S.isActive TO J%d.on", i > "expected.wrl"
  for (i = 0; i < n; i++) printf "\nROUTE J%d.out TO L.on", i > "expected.wrl"
}'
