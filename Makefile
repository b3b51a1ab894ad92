# Front door of libtarnxml. Every target installs missing Debian packages first
# (scripts/install-deps.sh), then configures and builds what it needs.
#
#   make demo       build, then run the tarnxml tool's guided tour on examples/sample.xml
#   make test       build and run the test suite (ctest) without the slow full-size runs
#   make test-slow  only the full-size runs of the tests with slow parts (ctest label "slow")
#   make test-all   both: the whole suite
#   make bench      Release build, run every benchmark (library vs raw libxml2 / pugixml, the tool
#                   vs xmllint / xmlstarlet) and print one summary table at the end
#   make asan       the test suite under AddressSanitizer + UndefinedBehaviorSanitizer (leaks fatal)
#   make tsan       the test suite under ThreadSanitizer
#   make consumer   install into a temporary prefix and build examples/consumer against it
#                   through find_package and through pkg-config
#   make fuzz       every libFuzzer target for FUZZ_SECONDS each (default 60), clang
#   make valgrind   the test suite under valgrind memcheck (no errors, no definite/indirect leaks)
#   make test32     the test suite built with -m32 for 32-bit x86 and run under qemu-i386
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

FUZZ_SECONDS ?= 60

.PHONY: all deps build test test-slow test-all demo bench asan tsan fuzz valgrind test32 consumer install clean

all: build

deps:
	@bash scripts/install-deps.sh

build/CMakeCache.txt: | deps
	$(CMAKE) -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_COMMON)

build: deps build/CMakeCache.txt
	$(CMAKE) -S . -B build $(CMAKE_COMMON) >/dev/null
	$(CMAKE) --build build -j $(JOBS)

test: build
	$(CTEST) --test-dir build --output-on-failure -j $(JOBS) -LE slow

test-slow: build
	$(CTEST) --test-dir build --output-on-failure -j $(JOBS) -L slow

test-all: build
	$(CTEST) --test-dir build --output-on-failure -j $(JOBS)

demo: build
	build/tools/tarnxml/tarnxml demo

# Every benchmark program appends its library/raw ratios to build-bench/summary.tsv (through
# TARNXML_BENCH_SUMMARY); the tool is measured against xmllint and xmlstarlet, and one table of
# all figures is printed at the end.
bench: deps
	$(CMAKE) -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTARNXML_BUILD_TESTS=OFF -DTARNXML_BUILD_TOOL=ON $(CMAKE_COMMON)
	$(CMAKE) --build build-bench -j $(JOBS)
	@rm -f build-bench/summary.tsv
	@for b in build-bench/bench/bench_*; do \
	  [ -x "$$b" ] || continue; \
	  echo "== $$b"; TARNXML_BENCH_SUMMARY=$(CURDIR)/build-bench/summary.tsv \
	    "$$b" --benchmark_counters_tabular=true $(BENCH_ARGS) || exit 1; \
	done
	@bash bench/load_memory.sh build-bench $(CURDIR)/build-bench/summary.tsv
	@bash bench/tool_vs_peers.sh build-bench $(CURDIR)/build-bench/summary.tsv
	@bash bench/print_summary.sh build-bench/summary.tsv

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

fuzz: deps
	CC=clang CXX=clang++ $(CMAKE) -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DTARNXML_BUILD_FUZZ=ON -DTARNXML_BUILD_TESTS=OFF -DTARNXML_BUILD_BENCH=OFF -DTARNXML_BUILD_TOOL=OFF \
	  -DTARNXML_SANITIZE=address,undefined -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link $(CMAKE_COMMON)
	$(CMAKE) --build build-fuzz -j $(JOBS)
	@set -e; for f in build-fuzz/fuzz/fuzz_*; do \
	  [ -x "$$f" ] || continue; name=$$(basename $$f); target=$${name#fuzz_}; \
	  mkdir -p build-fuzz/corpus/$$target; \
	  echo "== $$name ($(FUZZ_SECONDS)s)"; \
	  $(SAN_ENV) $$f -max_total_time=$(FUZZ_SECONDS) -timeout=20 -rss_limit_mb=2048 -max_len=65536 \
	    -print_final_stats=1 -artifact_prefix=build-fuzz/$$name- \
	    build-fuzz/corpus/$$target fuzz/corpus/$$target 2>build-fuzz/$$name.log \
	    || { tail -n 60 build-fuzz/$$name.log; exit 1; }; \
	  grep -E '^(Done|stat::number_of_executed_units)' build-fuzz/$$name.log | tail -n 2; \
	done

# Under valgrind the long randomised tests run with smaller counts (TARNXML_TEST_QUICK).
valgrind: build
	@set -e; failed=0; for t in build/tests/test_*; do \
	  [ -x "$$t" ] || continue; \
	  echo "== valgrind $$t"; \
	  TARNXML_TEST_QUICK=1 valgrind --quiet --error-exitcode=99 --leak-check=full \
	    --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
	    --suppressions=$(CURDIR)/tests/valgrind.supp --trace-children=no \
	    $$t --gtest_brief=1 --gtest_death_test_style=threadsafe >build/$$(basename $$t).valgrind.log 2>&1 \
	    || { tail -n 80 build/$$(basename $$t).valgrind.log; failed=1; }; \
	done; exit $$failed

test32:
	@bash scripts/install-deps.sh --i386
	$(CMAKE) -S . -B build-32 -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/i386-linux-gnu.cmake \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARNXML_BUILD_BENCH=OFF -DTARNXML_BUILD_TOOL=OFF $(CMAKE_COMMON)
	$(CMAKE) --build build-32 -j $(JOBS)
	$(CTEST) --test-dir build-32 --output-on-failure -j $(JOBS)

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
	rm -rf build build-asan build-tsan build-bench build-fuzz build-32
