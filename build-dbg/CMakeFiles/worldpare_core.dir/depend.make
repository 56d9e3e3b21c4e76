# Empty dependencies file for worldpare_core.
# This may be replaced when dependencies are built.
