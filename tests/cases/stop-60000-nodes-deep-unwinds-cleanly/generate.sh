# 60000 Groups opened one in the other and none closed: the end of the file
# stops the run 60000 nodes deep. The stop unwinds every level, with nothing
# else written (under the sanitizers too, where the stack of that depth is
# larger than an unwind that they follow), and leaves no output.
awk 'BEGIN {
  printf "#VRML V2.0 utf8\n" > "in.wrl"
  for (i = 0; i < 60000; i++) printf "Group { children [\n" > "in.wrl"
}'
