# Empty dependencies file for unit_tests.
# This may be replaced when dependencies are built.
