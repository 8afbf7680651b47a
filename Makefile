# Entry points: every target installs what it needs first, so a fresh machine works.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test bench clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja $(CMAKE_FLAGS) > /dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

bench:
	@scripts/install-deps libxml2-utils
	@cmake -S . -B $(BUILD_DIR)-bench -G Ninja -DCMAKE_BUILD_TYPE=Release \
	  -DCORVALE_BUILD_TESTS=OFF > /dev/null
	@cmake --build $(BUILD_DIR)-bench -j $(JOBS)
	@bench/run $(BUILD_DIR)-bench

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR)-bench
