# One call of 60,000 statements, each sending an event: 120,000 steps of
# work, past the least bound of a call but within what its code
# allows (720 KB of it). The Script is pared: the function that nothing calls goes.
awk 'BEGIN {
  n = 60000
  printf "#VRML V2.0 utf8\nDEF TS TouchSensor { }\nDEF L PointLight { }\n" > "in.wrl"
  printf "DEF S Script { eventIn SFTime touch eventOut SFBool lit url \"javascript:\n" > "in.wrl"
  printf "function never() { }\nfunction touch(t) {\n" > "in.wrl"
  for (i = 0; i < n; i++) printf "lit = true;\n" > "in.wrl"
  printf "}\" }\nROUTE TS.touchTime TO S.touch\nROUTE S.lit TO L.on\n" > "in.wrl"
  printf "#VRML V2.0 utf8\nDEF TS TouchSensor{}DEF L PointLight{}DEF S Script{\n" > "expected.wrl"
  printf "eventIn SFTime touch\neventOut SFBool lit\nurl\"javascript:\nfunction touch(t) {\n" > "expected.wrl"
  for (i = 0; i < n; i++) printf "lit=true;\n" > "expected.wrl"
  printf "}\n\"}\nROUTE TS.touchTime TO S.touch\nROUTE S.lit TO L.on" > "expected.wrl"
}'
