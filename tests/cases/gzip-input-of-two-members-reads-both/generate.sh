# Two gzip members, as `cat a.gz b.gz` makes them, inflate to one text.
printf '#VRML V2.0 utf8\nWorldInfo { title "first" }\n' | gzip -9 > in.wrz
printf 'WorldInfo { title "second" }\n' | gzip -1 >> in.wrz
