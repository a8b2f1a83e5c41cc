# Two commands for a fresh Debian 12 machine:
#   make demo   runs the main job on a built-in demo
#   make test   builds with sanitizers and runs every test
# Both install what is missing first (scripts/setup.sh).

BUILD_DIR ?= build
TEST_BUILD_DIR ?= build-test
FUZZ_BUILD_DIR ?= build-fuzz
JOBS ?= $(shell nproc)
CTEST_JOBS ?= 2

.PHONY: all setup build demo test screenshots clean format

all: build

setup:
	@scripts/setup.sh

build: setup
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	@scripts/demo.sh $(BUILD_DIR)

test: setup
	cmake -S . -B $(TEST_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DTARNWELL_SANITIZE=ON -DTARNWELL_WERROR=ON >/dev/null
	cmake --build $(TEST_BUILD_DIR) -j $(JOBS)
	ctest --test-dir $(TEST_BUILD_DIR) --output-on-failure -j $(CTEST_JOBS)
	cmake -S . -B $(FUZZ_BUILD_DIR) -DTARNWELL_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS)
	ctest --test-dir $(FUZZ_BUILD_DIR) --output-on-failure

# Pictures of the window at 1x, 2x and with a dark palette, under Xvfb, in
# $(BUILD_DIR)/screenshots/ (not committed).
screenshots: build
	tests/support/run-isolated.sh --keyring -- tests/gui/screenshots.sh $(CURDIR)/$(BUILD_DIR)/bin \
		$(CURDIR)/$(BUILD_DIR)/screenshots

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(TEST_BUILD_DIR) $(FUZZ_BUILD_DIR)
