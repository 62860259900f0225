# Thin wrapper over CMake for the README's commands.
JOBS    ?= $(shell nproc)
BUILD   ?= build
TESTDIR ?= build-test
TSANDIR ?= build-tsan

.PHONY: all setup run test test-tsan test-arm fuzz memcheck bench mutate sizes clean install

all: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_TESTS=OFF
	cmake --build $(BUILD) -j $(JOBS)

setup:
	@./scripts/setup.sh

# The demo REPL.
run: all
	./$(BUILD)/examples/quorvel-demo

# Warnings as errors, AddressSanitizer + UndefinedBehaviorSanitizer, every
# test; the thread, logger and print tests also under ThreadSanitizer; the
# real programs that cannot run under a sanitizer on a plain build.
test: setup test-tsan
	cmake -S . -B $(TESTDIR) -DCMAKE_BUILD_TYPE=Debug -DQUORVEL_WERROR=ON -DQUORVEL_SANITIZE=ON -DQUORVEL_TESTS=ON
	cmake --build $(TESTDIR) -j $(JOBS)
	cd $(TESTDIR) && ctest --output-on-failure -j $(JOBS)
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_TESTS=OFF
	cmake --build $(BUILD) -j $(JOBS) --target quorvel_readline
	./scripts/rl_programs.py --library $(BUILD)/libquorvel-readline.so --uninstrumented || [ $$? -eq 77 ]

test-tsan: setup
	cmake -S . -B $(TSANDIR) -DCMAKE_BUILD_TYPE=Debug -DQUORVEL_WERROR=ON -DQUORVEL_TSAN=ON -DQUORVEL_TESTS=ON
	cmake --build $(TSANDIR) -j $(JOBS) --target quorvel_service_tests quorvel_pty_tests quorvel_session_tests
	TSAN_OPTIONS=halt_on_error=1 ./$(TSANDIR)/tests/quorvel_service_tests --gtest_filter='Threads*:Logger*'
	TSAN_OPTIONS=halt_on_error=1 ./$(TSANDIR)/tests/quorvel_pty_tests --gtest_filter='Print*:Loop*'
	TSAN_OPTIONS=halt_on_error=1 ./$(TSANDIR)/tests/quorvel_session_tests


bench:
	@./scripts/setup.sh --bench
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQUORVEL_TESTS=OFF -DQUORVEL_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	./build-bench/bench/quorvel-bench-paint
	./build-bench/bench/quorvel-bench-print
	./build-bench/bench/quorvel-bench-sessions
	./build-bench/bench/quorvel-bench-compare
	./bench/history_scale.sh build-bench

# libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer),
# each run for FUZZ_SECONDS.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=
fuzz:
	@./scripts/setup.sh --fuzz
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_FUZZ=ON
	cmake --build build-fuzz -j $(JOBS) --target fuzz_keys fuzz_history fuzz_text fuzz_keymap fuzz_session
	./scripts/fuzz.sh build-fuzz $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# Single-point faults from tests/mutate/faults.txt, planted one at a time
# against the test suite (slow: about a minute a fault).
mutate: setup
	./scripts/mutate.py

# The pseudo-terminal tests with the host under valgrind's memcheck.
memcheck:
	@./scripts/setup.sh --memcheck
	./scripts/memcheck.sh

# The 32-bit ARM target: the library and its tests cross-built for armhf and
# run under qemu-arm, the default build and the minimal one.
test-arm:
	./scripts/test-arm.sh

# The size of the library on x86-64 and armhf, per build option (the
# README's table).
sizes:
	./scripts/sizes.sh

install: all
	cmake --install $(BUILD)

clean:
	rm -rf $(BUILD) $(TESTDIR) $(TSANDIR) build-bench build-arm build-arm-minimal build-arm-size build-fuzz build-memcheck build-mutate build-sizes
