# Thin wrapper around CMake: `make demo` and `make test` work on a fresh Debian machine.
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
BENCH_BUILD ?= build-bench
FUZZ_SECONDS ?= 60
JOBS ?= $(shell nproc)

.PHONY: all deps build demo test test-sanitize test-thread fuzz bench clean

all: build

# The Debian packages of one target (scripts/install-deps.sh build|test|fuzz|bench).
deps:
	@scripts/install-deps.sh $(or $(DEPS),test)

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# The demo needs the library and the tool only; KX_BUILD_TESTS stays as configured.
demo:
	@scripts/install-deps.sh build
	@[ -f $(BUILD)/build.ninja ] || cmake -S . -B $(BUILD) -G Ninja -DKX_BUILD_TESTS=OFF
	cmake --build $(BUILD) -j $(JOBS)
	@scripts/demo.sh $(BUILD)/bin/kxaudio

test:
	@scripts/install-deps.sh test
	@grep -q '^KX_BUILD_TESTS:BOOL=ON' $(BUILD)/CMakeCache.txt 2>/dev/null || cmake -S . -B $(BUILD) -G Ninja -DKX_BUILD_TESTS=ON
	cmake --build $(BUILD) -j $(JOBS)
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-sanitize:
	@scripts/install-deps.sh test
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DKX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# The suite built with ThreadSanitizer: the writer thread and the callers that watch it.
test-thread:
	@scripts/install-deps.sh test
	cmake -S . -B $(TSAN_BUILD) -G Ninja -DKX_SANITIZE_THREAD=ON -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	cd $(TSAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# Builds the fuzz targets with clang, ASan and UBSan, and runs each for FUZZ_SECONDS from its seeds
# (scripts/fuzz-seeds.sh) with its dictionary (fuzz/<target>.dict).
FUZZ_TARGETS = fuzz_chunks fuzz_plist fuzz_ixml fuzz_resource fuzz_sounddesigner
fuzz:
	@scripts/install-deps.sh fuzz
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DKX_BUILD_FUZZ=ON -DKX_BUILD_TESTS=OFF -DKX_SANITIZE=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	scripts/fuzz-seeds.sh $(FUZZ_BUILD)/seeds $(FUZZ_BUILD)/bin/kxaudio
	for target in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$target $(FUZZ_BUILD)/artifacts && \
	  $(FUZZ_BUILD)/bin/$$target $(FUZZ_BUILD)/corpus/$$target $(FUZZ_BUILD)/seeds/$$target -dict=fuzz/$$target.dict \
	    -artifact_prefix=$(FUZZ_BUILD)/artifacts/ -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 || exit 1; \
	done

# Optimised build of the benchmarks; prints libsndfile's time over ours for every case, then the
# speed table (kxaudio_speed, rounds interleaved).
bench:
	@scripts/install-deps.sh bench
	cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_BENCH=ON -DKX_BUILD_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	$(BENCH_BUILD)/bin/kxaudio_bench --benchmark_repetitions=$(or $(BENCH_REPETITIONS),3) --benchmark_report_aggregates_only=true
	$(BENCH_BUILD)/bin/kxaudio_speed --rounds $(or $(SPEED_ROUNDS),9)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD)
