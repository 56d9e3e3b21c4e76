# The two commands of a fresh machine: `make run` and `make test`.
BUILD := build
ASAN_BUILD := build-asan
COVERAGE_BUILD := build-coverage
JOBS := 2
EXAMPLE := examples/lamp.wrl

.PHONY: all build build-asan run test test-plain test-asan bench coverage clean

all: build

build:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DWORLDPARE_WERROR=ON >/dev/null
	cmake --build $(BUILD) -j $(JOBS)

build-asan:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DWORLDPARE_SANITIZE=ON \
	  -DWORLDPARE_WERROR=ON >/dev/null
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# worldPare ends with status 1 when it has written its output.
run: build
	rm -f $(BUILD)/example.out.wrl
	./$(BUILD)/worldPare $(EXAMPLE) $(BUILD)/example.out.wrl; test $$? -eq 1
	@echo "input:  $$(wc -c < $(EXAMPLE)) bytes  $(EXAMPLE)"
	@echo "output: $$(wc -c < $(BUILD)/example.out.wrl) bytes  $(BUILD)/example.out.wrl"

test: test-plain test-asan

test-plain: build
	cd $(BUILD) && ctest --output-on-failure

test-asan: build-asan
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure

bench: build
	cmake --build $(BUILD) --target bench_world
	mkdir -p $(BUILD)/bench
	./$(BUILD)/bench_world ./$(BUILD)/worldPare $(BUILD)/bench

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(COVERAGE_BUILD)

# Line coverage of the script simulator by the unit tests.
coverage:
	cmake -S . -B $(COVERAGE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage >/dev/null
	cmake --build $(COVERAGE_BUILD) -j $(JOBS) --target unit_tests
	find $(COVERAGE_BUILD) -name '*.gcda' -delete
	cd $(COVERAGE_BUILD) && ./unit_tests >/dev/null
	cd $(COVERAGE_BUILD) && gcov -n CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.gcda \
	  | grep -A1 "jssimulate.cpp'"
