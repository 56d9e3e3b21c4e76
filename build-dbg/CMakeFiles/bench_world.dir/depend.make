# Empty dependencies file for bench_world.
# This may be replaced when dependencies are built.
