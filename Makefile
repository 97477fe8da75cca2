# Two entry points for a fresh Debian machine (run as root): `make demo` and `make test`.
# Both install whatever build dependency is missing, then configure and build with CMake.

BUILD      ?= build
ASAN_BUILD ?= build-asan
WIN_BUILD  ?= build-win
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_LEAN_BUILD ?= build-fuzz-lean
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
# CI sets CI=true: warnings become errors there.
WERROR     ?= $(if $(CI),ON,OFF)

# help2man makes the manual pages; man-db, dpkg-dev and file are for the package and its tests.
DEB_PACKAGES := cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
                libpng-dev libicu-dev clang-format clang libclang-rt-14-dev \
                help2man man-db dpkg-dev file
# The other systems, as far as this machine can show them: the Windows build (MinGW-w64, posix threads)
# with its suites under Wine and GoogleTest built from source, and the Foundation bridge on GNUstep.
DEB_PACKAGES += g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 googletest \
                gobjc++ libgnustep-base-dev
# The GIMP plug-in is built against libgimp and tested in GIMP itself, run headless, its dialog on a
# virtual display.
DEB_PACKAGES += libgimp2.0-dev gimp xvfb xauth xdotool
BENCH_PACKAGES := libvips-tools time bc libcairo2-dev

# `make fuzz`: each fuzz target for FUZZ_SECONDS or FUZZ_RUNS executions, whichever comes first.
FUZZ_SECONDS ?= 600
FUZZ_RUNS    ?= 1000000
FUZZ_TARGETS ?= preset svg png module files
# `make test` gives each target this long on its corpus, as a smoke check.
FUZZ_SMOKE_SECONDS ?= 20
# The suites whose code runs on worker threads: pool, filter, stroke tasks, layouts, controller.
TSAN_TESTS := thread_pool_test move_effect_filter_test path_task_test layout_test controller_test

.PHONY: all deps bench-deps configure build test test-fast test-asan test-tsan test-windows fuzz-build fuzz fuzz-smoke \
        format format-check demo samples bench package clean \
        web web-deps web-serve test-web

all: build

# Installs only what is missing of the packages given, so a machine that has everything never touches apt.
define install_missing
	@missing=""; \
	for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  if [ "$$(id -u)" -ne 0 ]; then echo "error: missing packages and not root:$$missing" >&2; exit 1; fi; \
	  apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $$missing; \
	fi
endef

deps:
	$(call install_missing,$(DEB_PACKAGES))

# Only the benchmarks compare the tools with `vips copy`, read peak memory from /usr/bin/time and fill
# the dense strokes with cairo as an anchor.
bench-deps: deps
	$(call install_missing,$(BENCH_PACKAGES))

configure: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DBRIVANE_WERROR=$(WERROR) -DBRIVANE_GNUSTEP_BRIDGE=ON

build: configure
	cmake --build $(BUILD) -j $(JOBS)

# Release tests (the Foundation bridge's contract tests on GNUstep among them), the Windows build's
# suites under Wine, the same Linux suite under AddressSanitizer and UndefinedBehaviorSanitizer, the
# threaded suites under ThreadSanitizer, a short run of every fuzz target, and the page in a real
# browser.
test: format-check test-fast test-windows test-web test-asan test-tsan fuzz-smoke

test-fast: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	@echo "Foundation bridge on GNUstep: $$(cd $(BUILD) && ctest -N -R '^gnustep[.]' | sed -n 's/Total Tests: //p') contract cases run above"

# The Windows module, the simulated host's library, the bridge, storage, host and controller suites and
# the render digests, cross-built with MinGW-w64 and run headless under Wine with a prefix inside the
# build folder.
test-windows: deps
	cmake -S . -B $(WIN_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=Release \
	      -DBRIVANE_WERROR=$(WERROR) -DBRIVANE_BUILD_BENCH=OFF
	cmake --build $(WIN_BUILD) -j $(JOBS)
	cd $(WIN_BUILD) && ctest --output-on-failure -j $(JOBS) -LE slow
	@grep -h '^\[  PASSED  \] [0-9]* test' $(WIN_BUILD)/Testing/Temporary/LastTest.log | \
	  awk '{n += $$4} END {print "Windows suites under Wine: " n " cases passed"}'

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DBRIVANE_WERROR=$(WERROR) \
	      -DBRIVANE_SANITIZE=ON -DBRIVANE_BUILD_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	      ctest --output-on-failure -j $(JOBS) -LE slow

# Only the threaded suites are built; -O1 keeps both the build and the instrumented run short.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" \
	      -DBRIVANE_WERROR=$(WERROR) -DBRIVANE_TSAN=ON -DBRIVANE_BUILD_BENCH=OFF
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target $(TSAN_TESTS)
	@for t in $(TSAN_TESTS); do \
	  exe=$$(find $(TSAN_BUILD)/tests -type f -name $$t | head -n 1); \
	  echo "== TSan: $$t"; \
	  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" $$exe --gtest_brief=1 || exit 1; \
	done

# The libFuzzer targets of tests/fuzz, built with clang; the libraries carry coverage and ASan + UBSan.
# The files target, whose findings are stalls and memory blow-ups, is built apart with UBSan only: there
# the memory a run takes is the module's own, not ASan's, and it runs several times as many inputs.
fuzz-build: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=Debug \
	      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DBRIVANE_WERROR=$(WERROR) -DBRIVANE_FUZZ=ON \
	      -DBRIVANE_BUILD_TESTS=OFF -DBRIVANE_BUILD_BENCH=OFF
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target preset_fuzzer svg_fuzzer png_fuzzer module_fuzzer
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_LEAN_BUILD) -DCMAKE_BUILD_TYPE=Debug \
	      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g -fno-sanitize-coverage=trace-cmp" -DBRIVANE_WERROR=$(WERROR) \
	      -DBRIVANE_FUZZ=ON -DBRIVANE_FUZZ_SANITIZERS=undefined -DBRIVANE_BUILD_TESTS=OFF -DBRIVANE_BUILD_BENCH=OFF
	cmake --build $(FUZZ_LEAN_BUILD) -j $(JOBS) --target files_fuzzer

# Crash inputs land in $(FUZZ_BUILD)/crashes/, new corpus inputs in $(FUZZ_BUILD)/corpus/.
fuzz: fuzz-build
	FUZZ_LEAN_BUILD=$(FUZZ_LEAN_BUILD) tests/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_RUNS) $(FUZZ_TARGETS)

fuzz-smoke: fuzz-build
	FUZZ_LEAN_BUILD=$(FUZZ_LEAN_BUILD) tests/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SMOKE_SECONDS) $(FUZZ_RUNS) $(FUZZ_TARGETS)

FORMAT_FILES = $(shell git ls-files '*.h' '*.hpp' '*.cpp' '*.c' '*.mm' 2>/dev/null)

format:
	clang-format -i $(FORMAT_FILES)

format-check: deps
	@clang-format --dry-run --Werror $(FORMAT_FILES) && echo "clang-format: clean"

# Medians of several repetitions: the figures are read as ratios to BM_MemoryFloor and to `vips copy`,
# both measured in the same run.
bench: bench-deps build
	@for b in $(BUILD)/bench/*_bench; do echo "== $$b"; \
	  $$b --benchmark_min_time=0.5 --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
	      --benchmark_display_aggregates_only=true || exit 1; done
	@echo "== bench/tools_bench.sh"
	@bench/tools_bench.sh $(BUILD) 5
	@echo "== bench/gimp_bench.sh"
	@bench/gimp_bench.sh $(BUILD) 3

RENDER  = $(BUILD)/tools/render/brivane-render
HOST    = $(BUILD)/tools/host/brivane-host
DEMO_OUT ?= out

# The bundled sample layers rendered in all three arrangements, each as the bare effect layer flattened
# onto white (as on a page) plus a few variants.
demo: build
	@mkdir -p $(DEMO_OUT)
	$(RENDER) samples/focus.png --preset samples/focus.ini --background white -o $(DEMO_OUT)/radiate.png
	$(RENDER) samples/speed.png --preset samples/speed.ini --background white -o $(DEMO_OUT)/parallel.png
	$(RENDER) samples/rings.png --preset samples/rings.ini --background white -o $(DEMO_OUT)/circle.png
	$(RENDER) samples/focus.png --preset samples/focus.ini --color white --over --background white \
	          -o $(DEMO_OUT)/radiate-over.png
	$(RENDER) samples/speed.png --preset samples/wavy.ini --background white -o $(DEMO_OUT)/parallel-wave.png
	$(RENDER) samples/focus.png --preset samples/focus.ini -o $(DEMO_OUT)/radiate-layer.png \
	          --save-preset $(DEMO_OUT)/radiate.ini
	@echo
	@echo "Demo pictures in $(DEMO_OUT)/:"
	@for f in radiate circle parallel radiate-over parallel-wave radiate-layer; do \
	  echo "  $(DEMO_OUT)/$$f.png"; done
	@echo "  ($(DEMO_OUT)/radiate-layer.png is the bare RGBA layer; $(DEMO_OUT)/radiate.ini its settings)"
	@echo
	@echo "The same samples through the simulated host loading the plug-in module, each with a data folder"
	@echo "of its own that holds its preset (chosen in the panel) and the sample guide:"
	@for run in radiate,focus,focus parallel,speed,speed circle,rings,rings parallel-wave,speed,wavy; do \
	  set -- $$(echo $$run | tr , ' '); \
	  home=$$(cd $(DEMO_OUT) && pwd)/host-data/$$1; rm -rf "$$home"; \
	  mkdir -p "$$home/quorvel/brivane/preset" "$$home/quorvel/brivane/guide"; \
	  cp samples/$$3.ini "$$home/quorvel/brivane/preset/"; cp samples/*.svg "$$home/quorvel/brivane/guide/"; \
	  XDG_DATA_HOME="$$home" $(HOST) -i samples/$$2.png --set 140=1 -o $(DEMO_OUT)/host-$$1.png -q || exit 1; \
	  echo "  $(DEMO_OUT)/host-$$1.png  (samples/$$2.png, preset $$3; the layer as the plug-in wrote it)"; \
	done

# Redraws the sample layers in samples/ from tools/render/SampleLayers.cpp.
samples: build
	$(BUILD)/tools/render/brivane-make-samples samples

# ---- The page: the engine in WebAssembly (Debian's Emscripten), served as static files ----------------

WEB_BUILD    ?= build-web
WEB_DIST     ?= web/dist
WEB_PORT     ?= 8080
WEB_PACKAGES := emscripten chromium
# Emscripten finds its JavaScript tools through NODE_PATH.
EMSDK_ENV    := NODE_PATH=/usr/share/nodejs

# Node and npm count as present whatever installed them (a node build that bundles npm conflicts with
# Debian's npm package).
web-deps:
	@$(MAKE) --no-print-directory deps DEB_PACKAGES="$(WEB_PACKAGES) \
	  $$(command -v node >/dev/null || echo nodejs) $$(command -v npm >/dev/null || echo npm)"

# The panel comes from the plug-in's own panel as the simulated host prints it, with an empty data
# folder so that only the built-in line shapes are listed.
web: build web-deps
	$(EMSDK_ENV) emcmake cmake -S . -B $(WEB_BUILD) -DCMAKE_BUILD_TYPE=Release -DBRIVANE_WERROR=$(WERROR)
	$(EMSDK_ENV) cmake --build $(WEB_BUILD) -j $(JOBS)
	@mkdir -p $(WEB_DIST)
	cp web/src/* $(WEB_BUILD)/web/brivane.js $(WEB_BUILD)/web/brivane.wasm $(WEB_DIST)/
	@empty=$$(mktemp -d); XDG_DATA_HOME=$$empty $(HOST) -i samples/focus.png --panel \
	  | node web/panel-json.mjs > $(WEB_DIST)/panel.json; status=$$?; rm -rf $$empty; exit $$status
	@echo "The page is in $(WEB_DIST)/: any static file server will do (make web-serve)."

web-serve: web
	node web/serve.mjs $(WEB_DIST) $(WEB_PORT)

# Playwright drives Debian's Chromium; the npm packages come from the lockfile, no browser is fetched.
test-web: web
	@[ -d tests/web/node_modules/playwright-core ] || (cd tests/web && npm ci --no-audit --no-fund)
	cd tests/web && BRIVANE_DIST=$(CURDIR)/$(WEB_DIST) BRIVANE_RENDER=$(CURDIR)/$(RENDER) \
	  node --test --test-reporter=spec page.test.mjs

# The zip's cross build has a folder of its own: it builds the module alone, without the test suites.
WIN_PACKAGE_BUILD ?= build-win-package

# The .deb from the Linux build, then the .zip from the Windows cross build.
package: build
	cmake --build $(BUILD) --target package
	cmake -S . -B $(WIN_PACKAGE_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
	      -DCMAKE_BUILD_TYPE=Release -DBRIVANE_WERROR=$(WERROR) \
	      -DBRIVANE_BUILD_TESTS=OFF -DBRIVANE_BUILD_BENCH=OFF -DBRIVANE_BUILD_TOOLS=OFF
	cmake --build $(WIN_PACKAGE_BUILD) -j $(JOBS) --target package
	@echo; echo "Packages:"; ls -l $(BUILD)/brivane_*.deb; \
	  ls -l $(WIN_PACKAGE_BUILD)/brivane-*-win64.zip 2> /dev/null || true

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(FUZZ_LEAN_BUILD) $(WIN_PACKAGE_BUILD) $(WIN_BUILD) $(WEB_BUILD) $(WEB_DIST) out
