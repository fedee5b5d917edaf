# Entry points for people and CI. Everything real lives in CMake; this file only
# chains set-up, configure, build and run so that one command does it all.

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test quick stress faults demo bench fuzz package package-check install asan clean format

all: build

deps:
	scripts/install-deps

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure --parallel $(JOBS) --timeout 300

# The quick loop: every test but the soak.
quick: build
	cd $(BUILD_DIR) && ctest --output-on-failure --parallel $(JOBS) --timeout 300 --label-exclude soak

# The whole suite RUNS times beside BUSY processes that fork and exec without pause.
RUNS ?= 5
BUSY ?= 6
stress: build
	scripts/stress-test -n $(RUNS) -m $(BUSY) $(BUILD_DIR)

# Plants each fault of tests/faults.json in a clone of HEAD and runs the tests (tens of minutes).
faults: deps
	scripts/plant-faults tests/faults.json

# Builds only what the demo runs (not the tests); KEEP=1 keeps its folders to look at after.
demo: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS) --target posctl inpaspaymentprocessing \
	    zelnorinpas zelnorinpas-recorder zelnorinpas-scribe
	KEEP=$(KEEP) scripts/demo $(BUILD_DIR)

# Benchmarks in a Release build of their own; prints one table (see docs/performance.md).
bench:
	$(MAKE) build BUILD_DIR=build-bench BUILD_TYPE=Release \
	    CMAKE_FLAGS="$(CMAKE_FLAGS) -DINPAS_BUILD_BENCHMARKS=ON -DBUILD_TESTING=OFF"
	build-bench/bin/bench_inpas

# Every libFuzzer target for FUZZ_SECONDS (default 60) under ASan and UBSan; not part of test.
fuzz: deps
	scripts/fuzz build-fuzz

# Debian packages with debhelper, collected in $(BUILD_DIR)/packages.
package:
	scripts/install-deps --packaging
	@echo "make package: building the Debian packages with debhelper (a full build, some minutes)"
	scripts/package $(BUILD_DIR)

# The packages built, judged by lintian, installed into a throw-away root, used and purged.
package-check:
	scripts/install-deps --packaging
	scripts/package-check $(BUILD_DIR)

install: build
	cmake --install $(BUILD_DIR)

# Builds the whole tree with AddressSanitizer and UndefinedBehaviorSanitizer and runs the tests.
# Every process the tests start writes its reports into one folder; any report fails the run,
# also one from a process whose exit status no test looks at.
SANITIZER_REPORTS = $(CURDIR)/build-asan/sanitizer-reports
asan:
	rm -rf $(SANITIZER_REPORTS) && mkdir -p $(SANITIZER_REPORTS)
	ASAN_OPTIONS=log_path=$(SANITIZER_REPORTS)/asan:detect_leaks=1 \
	UBSAN_OPTIONS=log_path=$(SANITIZER_REPORTS)/ubsan:print_stacktrace=1 \
	    $(MAKE) test BUILD_DIR=build-asan BUILD_TYPE=Debug \
	    CMAKE_FLAGS="$(CMAKE_FLAGS) -DINPAS_SANITIZE=ON"
	@if [ -n "$$(ls -A $(SANITIZER_REPORTS))" ]; then \
	    cat $(SANITIZER_REPORTS)/*; echo "asan: the sanitizer reports above" >&2; exit 1; fi
	@echo "asan: no sanitizer reports"

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) build-asan build-bench build-fuzz obj-*
