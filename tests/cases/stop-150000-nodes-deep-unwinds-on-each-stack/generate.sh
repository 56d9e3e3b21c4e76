# 150000 Groups opened one in the other and none closed: the end of the file
# stops the run 150000 nodes deep. The recursion has gone on on the stacks of
# further threads, and the stop unwinds each in turn, with nothing else
# written (under the sanitizers too, which follow an unwind of at most 64 MB
# of stack), and leaves no output.
awk 'BEGIN {
  printf "#VRML V2.0 utf8\n" > "in.wrl"
  for (i = 0; i < 150000; i++) printf "Group { children [\n" > "in.wrl"
}'
