# Thin wrapper over CMake for the README's commands.
JOBS    ?= $(shell nproc)
BUILD   ?= build
TESTDIR ?= build-test

.PHONY: all setup run test bench clean install

all: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_TESTS=OFF
	cmake --build $(BUILD) -j $(JOBS)

setup:
	@./scripts/setup.sh

# The demo REPL.
run: all
	./$(BUILD)/examples/quorvel-demo

# Warnings as errors, AddressSanitizer + UndefinedBehaviorSanitizer, every test.
test: setup
	cmake -S . -B $(TESTDIR) -DCMAKE_BUILD_TYPE=Debug -DQUORVEL_WERROR=ON -DQUORVEL_SANITIZE=ON -DQUORVEL_TESTS=ON
	cmake --build $(TESTDIR) -j $(JOBS)
	cd $(TESTDIR) && ctest --output-on-failure -j $(JOBS)

bench:
	@./scripts/setup.sh --bench
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQUORVEL_TESTS=OFF -DQUORVEL_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	./build-bench/bench/quorvel-bench-paint

install: all
	cmake --install $(BUILD)

clean:
	rm -rf $(BUILD) $(TESTDIR) build-bench
