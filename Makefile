# The commands of daily life. Each installs what it needs (Debian packages) and is quick when all is
# there.
.PHONY: demo test bench format install-packages asan tsan quick-asan quick-tsan fuzz

build := build

demo: install-packages
	@cmake --preset debug >/dev/null
	@cmake --build --preset debug --target vesk virtualphone KRLVesk
	@scripts/demo.sh $(build)/debug

test: install-packages
	cmake --preset debug
	cmake --build --preset debug
	ctest --preset debug -j2

# The whole suite under a sanitizer.
asan tsan: install-packages
	cmake --preset $@
	cmake --build --preset $@
	ctest --preset $@ -j2

bench: install-packages
	@cmake --preset release >/dev/null
	@cmake --build --preset release --target benchmarks
	@scripts/bench.sh $(build)/release

# Its fast tests, and those about threads, under a sanitizer.
quick-asan quick-tsan: install-packages
	cmake --preset $(@:quick-%=%)
	cmake --build --preset $(@:quick-%=%) --target quick_tests
	ctest --preset $(@:quick-%=%) -j2 -L 'fast|threads'

# Short runs of the fuzz targets; needs Clang.
fuzz: install-packages
	cmake --preset fuzz
	cmake --build --preset fuzz --target fuzzers
	scripts/fuzz.sh $(build)/fuzz

format: install-packages
	@scripts/format.sh

install-packages:
	@scripts/install-packages.sh
