# The commands of daily life. Each installs what it needs (Debian packages) and is quick when all is
# there.
.PHONY: demo window test torture bench check tidy clang hardening format asan tsan quick-asan quick-tsan valgrind fuzz

build := build
# Tests wait for phones and programs more than they compute.
jobs := $(shell expr 2 '*' $$(nproc))
install := @scripts/install-packages.sh

# A tree that has been configured stays so; a fresh one is spared what only tests need, and reads the
# headers once for several sources, which takes a third of the time.
fresh := $(if $(wildcard $(build)/debug/CMakeCache.txt),,-DBUILD_TESTING=OFF -DCMAKE_UNITY_BUILD=ON)

demo:
	$(install) demo
	@cmake --preset debug $(fresh) >/dev/null
	@cmake --build --preset debug --target vesk virtualphone KRLVesk
	@scripts/demo.sh $(build)/debug

# The window over a virtual phone, for a try.
window:
	$(install) build
	@cmake --preset debug $(fresh) >/dev/null
	@cmake --build --preset debug --target vesk vesk-desktop vesk-prepare virtualphone KRLVesk
	@scripts/window.sh $(build)/debug

test:
	$(install) tests
	cmake --preset debug -DBUILD_TESTING=ON -DCMAKE_UNITY_BUILD=OFF
	cmake --build --preset debug
	ctest --preset debug -j$(jobs)

# The whole suite under a sanitizer.
asan tsan:
	$(install) tests
	cmake --preset $@
	cmake --build --preset $@
	ctest --preset $@ -j2

# Its fast tests, and those about threads, under a sanitizer.
quick-asan quick-tsan:
	$(install) tests
	cmake --preset $(@:quick-%=%)
	cmake --build --preset $(@:quick-%=%) --target quick_tests
	ctest --preset $(@:quick-%=%) -j2 -L 'fast|threads'

# Its fast tests under valgrind's memcheck: some twenty minutes.
valgrind:
	$(install) tests valgrind
	cmake --preset debug -DBUILD_TESTING=ON -DCMAKE_UNITY_BUILD=OFF
	cmake --build --preset debug --target quick_tests
	scripts/valgrind.sh $(build)/debug

# Every writing job, each of its requests met by each misfortune: some hours. A sample: make torture
# SECONDS=120. The tenth part of all: make torture PART=1/10
torture:
	$(install) tests
	@cmake --preset release -DKRL_BENCH=OFF -DBUILD_TESTING=ON >/dev/null
	@cmake --build --preset release --target torture
	$(build)/release/torture/torture $(if $(SECONDS),--seconds $(SECONDS)) $(if $(PART),--part $(PART))

bench:
	$(install) bench
	@cmake --preset release -DKRL_BENCH=ON >/dev/null
	@cmake --build --preset release --target benchmarks
	@scripts/bench.sh $(build)/release

# What a machine can check without running anything: rooms, rules and their tests, format.
check:
	$(install) checks
	scripts/check_rooms.py
	scripts/check_contracts.py
	scripts/format.sh --check

# clang-tidy over the library.
tidy:
	$(install) tests checks
	@cmake --preset clang >/dev/null
	scripts/tidy.sh $(build)/clang

# Everything, built by Clang.
clang:
	$(install) tests checks
	cmake --preset clang
	cmake --build --preset clang

# What is released, built as it is released: its ELF headers.
hardening:
	$(install) tests
	cmake --preset release -DKRL_BENCH=OFF
	cmake --build --preset release --target released
	ctest --preset release -R '^abi[.]hardening_of_'

# Short runs of the fuzz targets.
fuzz:
	$(install) fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz --target fuzzers
	scripts/fuzz.sh $(build)/fuzz

format:
	$(install) checks
	@scripts/format.sh
