# Thin wrapper around CMake: `make demo` and `make test` work on a fresh Debian machine.
BUILD ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
BENCH_BUILD ?= build-bench
FUZZ_SECONDS ?= 60
JOBS ?= $(shell nproc)

.PHONY: all deps build demo test test-sanitize fuzz bench clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	@scripts/demo.sh $(BUILD)/kxaudio

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DKX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# Builds the fuzz targets with clang, ASan and UBSan, and runs each for FUZZ_SECONDS.
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DKX_BUILD_FUZZ=ON -DKX_BUILD_TESTS=OFF -DKX_SANITIZE=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	mkdir -p $(FUZZ_BUILD)/corpus
	scripts/fuzz-seeds.sh $(FUZZ_BUILD)/seeds
	$(FUZZ_BUILD)/fuzz_chunks $(FUZZ_BUILD)/corpus $(FUZZ_BUILD)/seeds -dict=fuzz/fuzz_chunks.dict -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -max_len=65536

# Optimised build of the benchmarks; prints libsndfile's time over ours for every case.
bench: deps
	cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DKX_BUILD_BENCH=ON -DKX_BUILD_TESTS=OFF
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	$(BENCH_BUILD)/bench/kxaudio_bench --benchmark_repetitions=$(or $(BENCH_REPETITIONS),3) --benchmark_report_aggregates_only=true

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD)
