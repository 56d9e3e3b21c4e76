# The two commands of a fresh machine: `make run` and `make test`. Each target
# first installs what it lacks of Debian's packages through setup.sh.
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

.PHONY: all build build-asan build-fuzz run test test-plain test-asan bench fuzz difftest coverage clean \
  install

all: build

build:
	sh setup.sh build
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DWORLDPARE_WERROR=ON >/dev/null
	cmake --build $(BUILD) -j $(JOBS)

build-asan:
	sh setup.sh build
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
	cd $(BUILD) && ctest -j $(JOBS) --output-on-failure

test-asan: build-asan
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 ctest -j $(JOBS) --output-on-failure

bench: build
	cmake --build $(BUILD) --target bench_world
	mkdir -p $(BUILD)/bench
	./$(BUILD)/bench_world ./$(BUILD)/worldPare $(BUILD)/bench

# libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer (clang 14).
build-fuzz:
	sh setup.sh build fuzz
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DWORLDPARE_SANITIZE=ON -DWORLDPARE_FUZZ=ON >/dev/null
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS))

# Each target for FUZZ_SECONDS from the committed seeds and what earlier runs
# found; a slow input (-timeout) or a growing one (-rss_limit_mb) is a finding,
# whose input is left in $(FUZZ_BUILD)/ as crash-*, timeout-*, leak-* or oom-*.
# The entropic schedule's count of features took a quarter of the whole-tool
# target's time, for 1-2 % more features after 30 s: the inputs are chosen plainly.
fuzz: build-fuzz
	set -e; for target in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus-$$target; \
	  ./$(FUZZ_BUILD)/fuzz_$$target -max_total_time=$(FUZZ_SECONDS) -timeout=20 -rss_limit_mb=2048 -entropic=0 \
	    -max_len=8192 -dict=fuzz/worldpare.dict -artifact_prefix=$(FUZZ_BUILD)/ -print_final_stats=1 \
	    $(FUZZ_BUILD)/corpus-$$target fuzz/seeds/$$target 2>$(FUZZ_BUILD)/fuzz-$$target.log \
	    || { tail -60 $(FUZZ_BUILD)/fuzz-$$target.log; exit 1; }; \
	  grep -h "stat::number_of_executed_units\|stat::average_exec_per_sec" $(FUZZ_BUILD)/fuzz-$$target.log \
	    | sed "s/^/fuzz_$$target /"; \
	done

# Random worlds pared under --vrml97 and run beside their input in X_ITE in
# headless Chromium (not part of `make test`): first the runner's own pairs of
# worlds, then DIFFTEST_N worlds from the seed DIFFTEST_SEED on, with the
# options DIFFTEST_OPTIONS besides --vrml97 (as "--digits 6").
difftest: build
	sh setup.sh difftest
	$(MAKE) --no-print-directory web/node_modules/.package-lock.json
	cmake --build $(BUILD) --target worldgen
	node tests/difftest/selftest.mjs
	DIFFTEST_OPTIONS="$(DIFFTEST_OPTIONS)" \
	  tests/difftest/run.sh ./$(BUILD)/worldgen ./$(BUILD)/worldPare $(BUILD)/difftest \
	  $(DIFFTEST_N) $(DIFFTEST_SEED)

# The tool and its manual page under PREFIX.
PREFIX := /usr/local
install: build
	install -D -m 755 $(BUILD)/worldPare $(DESTDIR)$(PREFIX)/bin/worldPare
	install -D -m 644 worldPare.1 $(DESTDIR)$(PREFIX)/share/man/man1/worldPare.1

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

# The page: the tool in WebAssembly, run in a worker of a page that shows the
# world beside its pared form. Emscripten's compiler finds its own JavaScript
# modules through NODE_PATH.
PAGE := $(BUILD)/page
WASM_BUILD := $(BUILD)/wasm
EMXX := NODE_PATH=/usr/share/nodejs em++
# Linear-memory stack of the module. A delivery of an event chain takes about
# 100 bytes of it, as the compiler lays out its frames: 1 MB for a chain of
# 10000, 10 MB for the command line's bound of 100000; the rest is room to spare.
WASM_STACK := 16MB
WASM_SOURCES := $(filter-out compression/winmain.cpp,$(wildcard compression/*.cpp)) \
  $(wildcard web/wasm/*.cpp)
WASM_OBJECTS := $(WASM_SOURCES:%.cpp=$(WASM_BUILD)/%.o)
# The C++ library of Debian's Emscripten has no floating-point to_chars and
# from_chars: charconv_float.h adds them. The link wraps VPNode::receiveEvent
# to run event chains on fresh stacks (event_stacks.cpp).
WASM_CXXFLAGS := -O2 -std=c++17 -fwasm-exceptions -Wall -Wextra -Werror -Icompression \
  -include web/wasm/charconv_float.h -MMD -MP
WASM_LDFLAGS := -O2 -fwasm-exceptions -sMODULARIZE=1 -sEXPORT_NAME=createWorldPare \
  -sENVIRONMENT=worker -sFILESYSTEM=0 -sALLOW_MEMORY_GROWTH=1 -sMAXIMUM_MEMORY=4GB \
  -sINITIAL_MEMORY=32MB -sTOTAL_STACK=$(WASM_STACK) -sEXPORTED_FUNCTIONS=_malloc,_free \
  --js-library web/wasm/freshstack.js -Wl,--wrap=_ZN6VPNode12receiveEventEP12VPFuzzyValueb
PAGE_FILES := $(addprefix $(PAGE)/,index.html page.css page.js views.js worker.js)
XITE := web/node_modules/x_ite/dist

.PHONY: page page-tools test-tools serve-page test-page bench-page

page: $(PAGE)/worldpare.js $(PAGE_FILES) $(PAGE)/x_ite/x_ite.min.js

# What the machine lacks of Debian's packages: Emscripten to build the page,
# Chromium to test it.
page-tools:
	sh setup.sh page
test-tools:
	sh setup.sh test-page

web/node_modules/.package-lock.json: web/package-lock.json
	cd web && npm ci --no-audit --no-fund

$(WASM_BUILD)/%.o: %.cpp | page-tools
	@mkdir -p $(dir $@)
	$(EMXX) $(WASM_CXXFLAGS) -c $< -o $@

$(PAGE)/worldpare.js: $(WASM_OBJECTS) web/wasm/freshstack.js
	@mkdir -p $(PAGE)
	$(EMXX) $(WASM_LDFLAGS) $(WASM_OBJECTS) -o $@

$(PAGE)/%: web/%
	@mkdir -p $(PAGE)
	cp $< $@

$(PAGE)/x_ite/x_ite.min.js: web/node_modules/.package-lock.json
	rm -rf $(PAGE)/x_ite
	mkdir -p $(PAGE)/x_ite
	cp -r $(XITE)/x_ite.min.js $(XITE)/x_ite.css $(XITE)/LICENSE.md $(XITE)/assets $(PAGE)/x_ite/

PAGE_PORT ?= 8080
serve-page: page
	node web/serve.mjs $(PAGE) $(PAGE_PORT)

# The page in headless Chromium against the command line, on the same worlds.
test-page: page build test-tools
	node web/test/page-test.mjs

# The 20 MB benchmark world in the page against the command line.
bench-page: page bench test-tools
	node web/test/bench-page.mjs

-include $(WASM_OBJECTS:.o=.d)
