# The two commands: `make run` archives the mail in examples/ (or SOURCE=... into ARCHIVE=...), and
# `make test` passes the tests. Both set a fresh Debian 12 machine up first and can be repeated.

SOURCE ?= examples/mail
ARCHIVE ?= out/example.ambervane
PRESET ?= release

.PHONY: run test build setup clean

run: build
	@scripts/run_example build/$(PRESET)/ambervane "$(SOURCE)" "$(ARCHIVE)"

test: build
	@AMBERVANE_NO_TIMESTAMP=1 scripts/run_tests build/$(PRESET)

build: setup
	@cmake --preset $(PRESET) >build/configure.log 2>&1 || { cat build/configure.log; exit 1; }
	@cmake --build --preset $(PRESET)

setup:
	@scripts/setup
	@mkdir -p build

clean:
	rm -rf build
