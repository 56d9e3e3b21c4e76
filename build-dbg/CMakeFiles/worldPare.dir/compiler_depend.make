# Empty compiler generated dependencies file for worldPare.
# This may be replaced when dependencies are built.
