# A gzip stream cut in its middle stops the run before anything is written.
awk 'BEGIN { printf "#VRML V2.0 utf8\n"; for (i = 0; i < 2000; i++) printf "Transform { translation %d 0 0 }\n", i }' |
  gzip -9 | head -c 200 > in.wrl.gz
