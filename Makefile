# Two entry points: `make demo` runs zostat on a bundled sample, `make test`
# runs the test suites. Both install missing Debian packages first.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps test-deps build demo test sanitize clean

all: build

deps:
	@scripts/install-deps

# The tests also cross-check against R's spdep, so they install R's peers too.
test-deps:
	@scripts/install-deps --peers

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	scripts/demo $(BUILD)

test: test-deps build
	cmake $(BUILD) >/dev/null
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The same tests under AddressSanitizer and UndefinedBehaviorSanitizer.
sanitize: deps
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DSA_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD) build-asan
