# A chain of PROTOs, each body an instance of the PROTO before, and one
# instance of the last. Without options the copies made for the instances in
# the bodies count: each gives the level below the 0 0 0 declared around it,
# beside the 1 2 3 of the instance, so no t is a constant, but the last:
# only the instance's copy of its body gives it a value, and the value goes
# into the body. The instance's value becomes each default, newest PROTO
# first, and the instance is written without it.
awk 'BEGIN {
  n = 4000
  printf "#VRML V2.0 utf8\n" > "in.wrl"
  printf "PROTO P0 [ exposedField SFVec3f t 0 0 0 ] { Transform { translation IS t children Shape { geometry Box {} } } }\n" > "in.wrl"
  for (i = 1; i < n; i++) printf "PROTO P%d [ exposedField SFVec3f t 0 0 0 ] { P%d { t IS t } }\n", i, i - 1 > "in.wrl"
  printf "P%d { t 1 2 3 }\n", n - 1 > "in.wrl"
  printf "#VRML V2.0 utf8\nPROTO P0 [\nexposedField SFVec3f t 1 2 3\n] {\nTransform {\ntranslation IS t\nchildren Shape {\ngeometry Box {\n}\n}\n}\n}\n" > "expected.wrl"
  for (i = 1; i < n - 1; i++) printf "PROTO P%d [\nexposedField SFVec3f t 1 2 3\n] {\nP%d {\nt IS t\n}\n}\n", i, i - 1 > "expected.wrl"
  printf "PROTO P%d [\n] {\nP%d {\n}\n}\nP%d {\n}\n", n - 1, n - 2, n - 1 > "expected.wrl"
}'
