# The world of a .wrz file is read as if it stood there plain.
printf '#VRML V2.0 utf8\n# compressed\nWorldInfo { title "zipped" }\n' | gzip -9 > in.wrz
printf '#VRML V2.0 utf8\nWorldInfo {\ntitle "zipped"\n}\n' > expected.wrl
