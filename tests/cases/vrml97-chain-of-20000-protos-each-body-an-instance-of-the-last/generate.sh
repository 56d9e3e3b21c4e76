# A chain of PROTOs, each body an instance of the PROTO before, and one
# instance of the last. Each instance in a body runs only inside the instance
# that holds it, so the one value given at the top, 1 2 3, is the value of t
# at every level: each t is a constant parameter, and the value goes into the
# Transform at the bottom of the chain.
awk 'BEGIN {
  n = 20000
  printf "#VRML V2.0 utf8\n" > "in.wrl"
  printf "PROTO P0 [ exposedField SFVec3f t 0 0 0 ] { Transform { translation IS t children Shape { geometry Box {} } } }\n" > "in.wrl"
  for (i = 1; i < n; i++) printf "PROTO P%d [ exposedField SFVec3f t 0 0 0 ] { P%d { t IS t } }\n", i, i - 1 > "in.wrl"
  printf "P%d { t 1 2 3 }\n", n - 1 > "in.wrl"
  printf "#VRML V2.0 utf8\nPROTO P0[]{Transform{\ntranslation 1 2 3\nchildren Shape{\ngeometry Box{}}}}" > "expected.wrl"
  for (i = 1; i < n; i++) printf "PROTO P%d[]{P%d{}}", i, i - 1 > "expected.wrl"
  printf "P%d{}", n - 1 > "expected.wrl"
}'
