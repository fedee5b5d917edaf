# Entry points for people and CI. Everything real lives in CMake; this file only
# chains set-up, configure, build and run so that one command does it all.

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo bench package package-check install asan clean format

all: build

deps:
	scripts/install-deps

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure --parallel $(JOBS) --timeout 300

demo: build
	scripts/demo $(BUILD_DIR)

bench:
	$(MAKE) build CMAKE_FLAGS="$(CMAKE_FLAGS) -DINPAS_BUILD_BENCHMARKS=ON"
	$(BUILD_DIR)/bin/bench_inpas

# Debian packages with debhelper, collected in $(BUILD_DIR)/packages.
package:
	scripts/install-deps --packaging
	scripts/package $(BUILD_DIR)

# The packages built, judged by lintian, installed into a throw-away root, used and purged.
package-check:
	scripts/install-deps --packaging
	scripts/package-check $(BUILD_DIR)

install: build
	cmake --install $(BUILD_DIR)

# Builds the whole tree with AddressSanitizer and UndefinedBehaviorSanitizer and runs the tests.
asan:
	$(MAKE) test BUILD_DIR=build-asan BUILD_TYPE=Debug CMAKE_FLAGS="$(CMAKE_FLAGS) -DINPAS_SANITIZE=ON"

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) build-asan obj-*
