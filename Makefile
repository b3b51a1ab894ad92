# Front door of libtarnxml. Every target installs missing Debian packages first
# (scripts/install-deps.sh), then configures and builds what it needs.
#
#   make demo       build, then run the tarnxml tool's guided tour on examples/sample.xml
#   make test       build and run the test suite (ctest)
#   make bench      Release build, run every benchmark (library vs raw libxml2 / pugixml)
#   make asan       the test suite under AddressSanitizer + UndefinedBehaviorSanitizer (leaks fatal)
#   make tsan       the test suite under ThreadSanitizer
#   make consumer   install into a temporary prefix and build examples/consumer against it
#                   through find_package and through pkg-config
#   make install    install into PREFIX (default /usr/local)
#
# WERROR=ON turns warnings into errors (CI does this). JOBS sets build parallelism.

JOBS    ?= $(shell nproc)
WERROR  ?= OFF
PREFIX  ?= /usr/local
CMAKE   ?= cmake
CTEST   ?= ctest
CMAKE_COMMON = -DTARNXML_WERROR=$(WERROR)

SAN_ENV = ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1:detect_stack_use_after_return=1:strict_string_checks=1 \
          UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
          LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp:print_suppressions=0
TSAN_ENV = TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/tsan.supp

.PHONY: all deps build test demo bench asan tsan consumer install clean

all: build

deps:
	@bash scripts/install-deps.sh

build/CMakeCache.txt: | deps
	$(CMAKE) -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_COMMON)

build: deps build/CMakeCache.txt
	$(CMAKE) -S . -B build $(CMAKE_COMMON) >/dev/null
	$(CMAKE) --build build -j $(JOBS)

test: build
	$(CTEST) --test-dir build --output-on-failure -j $(JOBS)

demo: build
	build/tools/tarnxml/tarnxml demo

bench: deps
	$(CMAKE) -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTARNXML_BUILD_TESTS=OFF -DTARNXML_BUILD_TOOL=OFF $(CMAKE_COMMON)
	$(CMAKE) --build build-bench -j $(JOBS)
	@for b in build-bench/bench/bench_*; do \
	  [ -x "$$b" ] || continue; \
	  echo "== $$b"; "$$b" --benchmark_counters_tabular=true $(BENCH_ARGS) || exit 1; \
	done

asan: deps
	$(CMAKE) -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARNXML_SANITIZE=address,undefined \
	  -DTARNXML_BUILD_BENCH=OFF $(CMAKE_COMMON)
	$(CMAKE) --build build-asan -j $(JOBS)
	$(SAN_ENV) $(CTEST) --test-dir build-asan --output-on-failure -j $(JOBS)

tsan: deps
	$(CMAKE) -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARNXML_SANITIZE=thread \
	  -DTARNXML_BUILD_BENCH=OFF $(CMAKE_COMMON)
	$(CMAKE) --build build-tsan -j $(JOBS)
	$(TSAN_ENV) $(CTEST) --test-dir build-tsan --output-on-failure -j $(JOBS)

consumer: build
	rm -rf build/stage build/consumer-cmake build/consumer-pc
	$(CMAKE) --install build --prefix $(CURDIR)/build/stage >/dev/null
	$(CMAKE) -S examples/consumer -B build/consumer-cmake -DCMAKE_PREFIX_PATH=$(CURDIR)/build/stage \
	  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror"
	$(CMAKE) --build build/consumer-cmake -j $(JOBS)
	LD_LIBRARY_PATH=$(CURDIR)/build/stage/lib:$(CURDIR)/build/stage/lib/$$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null) \
	  build/consumer-cmake/consumer
	mkdir -p build/consumer-pc
	PKG_CONFIG_PATH=$$(dirname $$(find $(CURDIR)/build/stage -name tarnxml.pc)) \
	  sh -c 'c++ -std=c++17 -Wall -Wextra -Werror examples/consumer/main.cpp -o build/consumer-pc/consumer $$(pkg-config --cflags --libs tarnxml)'
	LD_LIBRARY_PATH=$$(dirname $$(find $(CURDIR)/build/stage -name 'libtarnxml.so' | head -n1)) build/consumer-pc/consumer

install: build
	$(CMAKE) --install build --prefix $(PREFIX)

clean:
	rm -rf build build-asan build-tsan build-bench
