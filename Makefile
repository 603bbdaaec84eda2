# Thin wrapper around CMake: `make demo` and `make test` work on a fresh Debian machine.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= $(shell nproc)

.PHONY: all deps build demo test test-sanitize clean

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

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
