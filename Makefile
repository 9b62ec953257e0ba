# The commands that stay the same; tools/ and CMakeLists.txt do the work.
#
#   make demo                 a simulated shelf, every step of its tour checked
#   make shelf                the demo's shelf with readings that move, in a browser, until it is stopped
#   make demo MODULES=DIR     a shelf of the module dumps (*.eeprom) in DIR
#   make demo-network NODES=30   so many nodes under a real Prometheus and Alertmanager, broken and healed
#   make test                 every test
#   make pictures             the pictures of the page in docs, taken anew
#   make test-kernel          the driver on a real Linux kernel under QEMU, every step checked
#   make bench                the benchmarks, beside reference points, and what can be counted
#   make check-fast           what takes no second build: before a commit
#   make check-long           the attacks at full length: every allocation, 100,000 schedules; about an hour
#   make deb                  the Debian packages, in build/deb
#   make test-deb             these in a fresh Debian: installed, run, upgraded, built against, purged; as root
#   make dist                 the source archive and its bill of materials, in build/dist
#   make check                format, lint, catalogue, binary interface, sanitizers, coverage, attacks, the real kernel, short fuzz runs

JOBS ?= $(shell nproc)

.PHONY: demo demo-network shelf pictures test test-kernel test-deb bench check check-fast check-long deb dist
.SILENT:

demo:
	tools/setup test
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lumctl lum-module-image lum-trace
	python3 tools/demo --build build $(if $(MODULES),--modules "$(MODULES)")

demo-network:
	tools/setup test
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lumctl lum-module-image lum-trace
	python3 tools/demo_network --build build $(if $(NODES),--nodes "$(NODES)")

shelf:
	tools/setup test
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lumctl
	python3 tools/demo --build build --stay

pictures:
	tools/setup test
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lumctl
	/usr/bin/python3 tools/take_pictures.py --build build

test:
	tools/setup test
	cmake --preset release
	cmake --build build -j $(JOBS)
	ctest --test-dir build -j $$(($(JOBS) * 3)) --output-on-failure
	tools/attack_counts.py build

test-kernel:
	tools/setup kernel
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lumctl lum-module-image i2c_adapter stub_fill
	python3 tests/kernel --build build

bench:
	tools/setup bench
	cmake --preset bench
	cmake --build build/bench -j $(JOBS) --target bench
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target lumd lum-module-image
	python3 bench/bring_up.py --build build --json build/bench/bring_up.json
	python3 bench/polling_cycle.py --build build --json build/bench/polling_cycle.json
	python3 bench/answers.py --build build --json build/bench/answers.json
	python3 bench/bus_time.py --build build --json build/bench/bus_time.json
	python3 bench/viewers.py --build build
	/usr/bin/python3 bench/drawing.py --build build

check:
	tools/setup check
	tools/check.sh

check-fast:
	tools/setup check
	tools/check.sh fast

check-long:
	tools/setup test
	cmake --preset release >/dev/null
	cmake --build build -j $(JOBS) --target schedules_test attacks_test lumd lumctl lum-module-image lum-trace
	LUM_SCHEDULES=$${LUM_SCHEDULES:-100000} build/schedules_test --gtest_filter='*whatever*'
	LUM_ATTACK_STRIDE=1 build/attacks_test
	cd tests/client && seq -f %g/4 4 | LUM_MEMORY_TRIALS=1000000 LUM_BUILD=$(CURDIR)/build xargs -P 4 -I+ \
		env LUM_MEMORY_PART=+ python3 -m unittest -v test_without_memory

deb:
	tools/setup deb
	JOBS=$(JOBS) tools/deb

test-deb: deb
	python3 tests/deb --packages build/deb

dist:
	tools/setup dist
	tools/dist
