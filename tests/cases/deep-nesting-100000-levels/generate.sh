# A Transform in a Transform, 100000 deep, around one Shape: each level comes
# out as "Transform {", "children ..." and "}".
awk 'BEGIN {
  n = 100000
  printf "#VRML V2.0 utf8\n" > "in.wrl"
  for (i = 0; i < n; i++) printf "Transform { children " > "in.wrl"
  printf "Shape { }" > "in.wrl"
  for (i = 0; i < n; i++) printf " }" > "in.wrl"
  printf "\n" > "in.wrl"
  printf "#VRML V2.0 utf8\n" > "expected.wrl"
  for (i = 0; i < n; i++) printf "Transform {\nchildren " > "expected.wrl"
  printf "Shape {\n}\n" > "expected.wrl"
  for (i = 0; i < n; i++) printf "}\n" > "expected.wrl"
}'
