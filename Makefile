# The commands of daily life. Each installs what it needs (Debian packages) and is quick when all is
# there.
.DEFAULT_GOAL := help
.PHONY: help demo window built-window test torture bench check reference tidy clang hardening abi install uninstall package package-test package-twice release format asan tsan quick-asan quick-tsan valgrind fuzz

help: ## this list
	@awk -F ':.* ## ' '/^[a-z -]+:.* ## / { printf "  make %-22s %s\n", $$1, $$2 }' Makefile

build := build
# Tests wait for phones and programs more than they compute.
jobs := $(shell expr 2 '*' $$(nproc))
install := @scripts/install-packages.sh

# A tree that has been configured stays so; a fresh one is spared what only tests need, and reads the
# headers once for several sources, which takes a third of the time.
fresh := $(if $(wildcard $(build)/debug/CMakeCache.txt),,-DBUILD_TESTING=OFF -DCMAKE_UNITY_BUILD=ON)

demo: ## a virtual phone and a whole sync before your eyes
	$(install) demo
	@cmake --preset debug $(fresh) >/dev/null
	@cmake --build --preset debug --target vesk virtualphone KRLVesk
	@scripts/demo.sh $(build)/debug

window: built-window ## the window over a virtual phone
	@scripts/window.sh $(build)/debug

built-window:
	$(install) build
	@cmake --preset debug $(fresh) >/dev/null
	@cmake --build --preset debug --target vesk vesk-desktop vesk-prepare vesk-play virtualphone KRLVesk

test: ## build everything and run all tests
	$(install) tests
	cmake --preset debug -DBUILD_TESTING=ON -DCMAKE_UNITY_BUILD=OFF
	cmake --build --preset debug
	ctest --preset debug -j$(jobs)

asan tsan: ## the whole suite under a sanitizer
	$(install) tests
	cmake --preset $@
	cmake --build --preset $@
	ctest --preset $@ -j2

quick-asan quick-tsan: ## fast tests, and those about threads, under a sanitizer
	$(install) tests
	cmake --preset $(@:quick-%=%)
	cmake --build --preset $(@:quick-%=%) --target quick_tests
	ctest --preset $(@:quick-%=%) -j2 -L 'fast|threads'

valgrind: ## fast tests under memcheck: some twenty minutes
	$(install) tests valgrind
	cmake --preset debug -DBUILD_TESTING=ON -DCMAKE_UNITY_BUILD=OFF
	cmake --build --preset debug --target quick_tests
	scripts/valgrind.sh $(build)/debug

# Every writing job, each of its requests met by each misfortune: some hours. A sample: make torture
# SECONDS=120. The tenth part of all: make torture PART=1/10
torture: ## writing jobs met by every misfortune: hours, or SECONDS=120
	$(install) tests
	@cmake --preset release -DKRL_BENCH=OFF -DBUILD_TESTING=ON >/dev/null
	@cmake --build --preset release --target torture
	$(build)/release/torture/torture $(if $(SECONDS),--seconds $(SECONDS)) $(if $(PART),--part $(PART))

bench: ## speed beside peers that do the same work
	$(install) bench
	@cmake --preset release -DKRL_BENCH=ON >/dev/null
	@cmake --build --preset release --target benchmarks
	@scripts/bench.sh $(build)/release

# What a machine can check without running anything: rooms, rules and their tests, format.
check: reference ## rooms, rules, format, and that the reference is whole
	scripts/check_rooms.py
	scripts/check_contracts.py
	scripts/format.sh --check

reference: ## what the public headers say, as pages: build/reference/index.html
	$(install) checks
	doxygen docs/reference/Doxyfile

tidy: ## clang-tidy over the library
	$(install) tests checks
	@cmake --preset clang >/dev/null
	scripts/tidy.sh $(build)/clang

clang: ## everything, built by Clang
	$(install) tests checks
	cmake --preset clang
	cmake --build --preset clang

hardening: ## a release build: its ELF headers, its names
	$(install) tests
	cmake --preset release -DKRL_BENCH=OFF -DBUILD_TESTING=ON
	cmake --build --preset release --target released
	ctest --preset release -R '^abi[.](hardening|exported_names)_of_'

# A change of what programs rely on is written down in the commit that makes it.
abi: ## the dumps that the ABI is held against, anew
	$(install) tests
	cmake --preset debug -DBUILD_TESTING=ON -DCMAKE_UNITY_BUILD=OFF
	cmake --build --preset debug --target KRLVesk
	tests/library/abi/abi_test.sh write $(build)/debug/bin/libKRLVesk.so.0 tests/library/abi/libKRLVesk.abi
	tests/library/abi/abi_test.sh write $(build)/debug/bin/libKRLCoreFoundation.so.0 \
	    tests/library/abi/libKRLCoreFoundation.abi

fuzz: ## short runs of the fuzz targets
	$(install) fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz --target fuzzers
	scripts/fuzz.sh $(build)/fuzz

# DESTDIR=ROOT puts all of it below another root, as packages want it.
prefix := $(or $(PREFIX),/usr/local)

install: ## a release into PREFIX, /usr/local unless given
	$(install) build
	cmake --preset release -DKRL_BENCH=OFF -DBUILD_TESTING=OFF
	cmake --build --preset release --target released
	cmake --install $(build)/release --prefix $(prefix)
	@[ -n "$(DESTDIR)" ] || [ "$$(id -u)" -ne 0 ] || ldconfig # programs find new libraries then

uninstall: ## what make install has put there
	xargs -d '\n' -I FILE rm -f "$(DESTDIR)FILE" <$(build)/release/install_manifest.txt

package: ## Debian packages, into build/packages
	$(install) package
	scripts/package.sh $(build)/packages
	lintian --fail-on error,warning $(build)/packages/*.changes

package-test: ## the packages in a clean root: installed, used, removed
	$(install) package
	scripts/package-test.sh $(build)/packages

package-twice: ## two builds of the packages, byte for byte
	$(install) package
	scripts/package-twice.sh $(build)/packages-twice

# Nothing is published by this: it says whether a version is ready, and makes what is to be published.
release: ## checks of a version, its packages and its archive: build/release
	@scripts/check_release.py >/dev/null
	$(MAKE) check test package package-test
	scripts/release.sh $(build)/release

format: ## format all sources
	$(install) checks
	@scripts/format.sh
