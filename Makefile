# KUVO Lumivale: the two everyday commands.
#   make run    install what is missing, build, start the app
#   make test   install what is missing, build, run every test
# Builds are incremental; `make clean` starts over.

SHELL  := /bin/bash
PRESET ?= release
BUILD  := build/$(PRESET)
ARGS   ?=

.PHONY: all deps configure build run test bench clean asan tsan

all: build

deps:
	./scripts/install-deps.sh

$(BUILD)/build.ninja:
	cmake --preset $(PRESET)

configure: deps $(BUILD)/build.ninja

build: configure
	cmake --build $(BUILD)

run: build
	$(BUILD)/app/lumivale $(ARGS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j2 --timeout 900

bench: build
	for b in $(BUILD)/bench/bench_*; do $$b; done

asan:
	$(MAKE) test PRESET=asan

tsan:
	$(MAKE) test PRESET=tsan

clean:
	rm -rf build
