# A children field opened by a megabyte of "[": a list of nodes holds no list,
# so the second "[" stops the run where it stands, and no output is left (also
# under the sanitizers, where the stop unwinds the passes' stack).
awk 'BEGIN {
  printf "#VRML V2.0 utf8\nTransform { children " > "in.wrl"
  for (i = 0; i < 1048576 / 64; i++) {
    printf "[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[" > "in.wrl"
  }
  printf "\n" > "in.wrl"
}'
