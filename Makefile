# The two commands of a fresh machine: `make run` and `make test`.
BUILD := build
ASAN_BUILD := build-asan
COVERAGE_BUILD := build-coverage
FUZZ_BUILD := build-fuzz
FUZZ_SECONDS := 60
FUZZ_TARGETS := world script number
JOBS := 2
EXAMPLE := examples/lamp.wrl

DIFFTEST_N := 200
DIFFTEST_SEED := 1

.PHONY: all build build-asan build-fuzz run test test-plain test-asan bench fuzz difftest coverage clean

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

# libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer (clang 14).
build-fuzz:
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DWORLDPARE_SANITIZE=ON -DWORLDPARE_FUZZ=ON >/dev/null
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS))

# Each target for FUZZ_SECONDS from the committed seeds and what earlier runs
# found; a slow input (-timeout) or a growing one (-rss_limit_mb) is a finding,
# whose input is left in $(FUZZ_BUILD)/ as crash-*, timeout-*, leak-* or oom-*.
fuzz: build-fuzz
	set -e; for target in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus-$$target; \
	  ./$(FUZZ_BUILD)/fuzz_$$target -max_total_time=$(FUZZ_SECONDS) -timeout=5 -rss_limit_mb=2048 \
	    -max_len=8192 -dict=fuzz/worldpare.dict -artifact_prefix=$(FUZZ_BUILD)/ -print_final_stats=1 \
	    $(FUZZ_BUILD)/corpus-$$target fuzz/seeds/$$target 2>$(FUZZ_BUILD)/fuzz-$$target.log \
	    || { tail -60 $(FUZZ_BUILD)/fuzz-$$target.log; exit 1; }; \
	  grep -h "stat::number_of_executed_units\|stat::average_exec_per_sec" $(FUZZ_BUILD)/fuzz-$$target.log \
	    | sed "s/^/fuzz_$$target /"; \
	done

# Random worlds pared under --vrml97 and run beside their input by ../shared/tools
# (not part of `make test`): DIFFTEST_N worlds from the seed DIFFTEST_SEED on.
difftest: build
	cmake --build $(BUILD) --target worldgen
	tests/difftest/run.sh ./$(BUILD)/worldgen ./$(BUILD)/worldPare $(BUILD)/difftest \
	  $(DIFFTEST_N) $(DIFFTEST_SEED)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(COVERAGE_BUILD) $(FUZZ_BUILD)

# Line coverage of the script simulator by the unit tests.
coverage:
	cmake -S . -B $(COVERAGE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage >/dev/null
	cmake --build $(COVERAGE_BUILD) -j $(JOBS) --target unit_tests
	find $(COVERAGE_BUILD) -name '*.gcda' -delete
	cd $(COVERAGE_BUILD) && ./unit_tests >/dev/null
	cd $(COVERAGE_BUILD) && gcov -n CMakeFiles/worldpare_core.dir/compression/jssimulate.cpp.gcda \
	  | grep -A1 "jssimulate.cpp'"
