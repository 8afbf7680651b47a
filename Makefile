# Entry points: every target installs what it needs first, so a fresh machine works.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps configure build test bench demo app sanitize fuzz screenshot clean

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
	  -DCORVALE_BUILD_TESTS=OFF -DCORVALE_BUILD_APP=OFF -DCORVALE_BUILD_BENCH=ON > /dev/null
	@cmake --build $(BUILD_DIR)-bench -j $(JOBS)
	@bench/run $(BUILD_DIR)-bench

# Sorts a copy of the sample project and shows its bins. HOME, the XDG
# folders and the machine-wide root point into the demo folder, so the
# settings file and the log of the demo stay out of the user's own home.
DEMO_DIR = $(abspath $(BUILD_DIR)/demo)
demo: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target corvale
	@rm -rf $(DEMO_DIR) && mkdir -p $(DEMO_DIR)/home
	@cp examples/sample-project.xml examples/sample-recipe.json $(DEMO_DIR)/
	@cd $(DEMO_DIR) && export HOME=$(DEMO_DIR)/home XDG_CONFIG_HOME=$(DEMO_DIR)/home/.config \
	  XDG_DATA_HOME=$(DEMO_DIR)/home/.local/share XDG_STATE_HOME=$(DEMO_DIR)/home/.local/state \
	  XDG_CACHE_HOME=$(DEMO_DIR)/home/.cache CORVALE_LOCAL_ROOT=$(DEMO_DIR)/home/local && \
	  corvale=$(abspath $(BUILD_DIR))/src/cli/corvale && \
	  echo '$$ corvale sort sample-project.xml --range "Reel [1-4]" --smart-bin "Drone and Archive" --match any --filter "name contains drone" --filter "name contains archive" --smart-range scene' && \
	  $$corvale sort sample-project.xml --range "Reel [1-4]" \
	    --smart-bin "Drone and Archive" --match any \
	    --filter "name contains drone" --filter "name contains archive" \
	    --smart-range scene && \
	  echo '$$ corvale show sample-project.xml' && \
	  $$corvale show sample-project.xml && \
	  echo "(the sorted copy: $(DEMO_DIR)/sample-project.xml)"

# Builds the desktop application and starts it.
app: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target corvale-desktop
	@$(BUILD_DIR)/src/app/Corvale

# The test suite under AddressSanitizer with UndefinedBehaviorSanitizer, and
# the threaded tests under ThreadSanitizer, each in its own build folder.
sanitize: deps
	@scripts/run-sanitizers $(BUILD_DIR)

# Runs every fuzz target for FUZZ_SECONDS each (clang's libFuzzer).
FUZZ_SECONDS ?= 60
fuzz: deps
	@scripts/run-fuzz $(BUILD_DIR)-fuzz $(FUZZ_SECONDS)

# Remakes the README's screenshot of a window with a sorted project.
screenshot: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target corvale-desktop
	@scripts/screenshot $(BUILD_DIR)

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR)-bench
