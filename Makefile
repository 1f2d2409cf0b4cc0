# The two commands of a user are `./make run ROOT=...` and `./make test`. Each target installs
# what it needs and is missing (Debian packages, as root or with sudo).

ROOT ?= .
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
PYTHON ?= python3
RELEASE = build/release/program/path-filter

.PHONY: help run test build libraries install uninstall package packages test-clang test-posix \
  test-tsan test-asan test-package test-python test-report lint share mutants bench \
  bench-python fuzz fuzz-git static test-cross check-systems wheels test-wheels test-windows \
  dist clean

run: build  ## list the indexable files of ROOT (.)
	@$(RELEASE) list "$(ROOT)"

help:  ## this list
	@awk -F ':.*## ' '/^[a-z].*:.*##/ { printf "make %-36s %s\n", $$1, $$2 }' $(MAKEFILE_LIST)

# On stderr, as the output of `make run` is the list alone.
build: needs-build  ## build the program, optimised
	@echo "building $(RELEASE); a minute or two the first time" >&2
	@cmake --preset release >&2
	@cmake --build --preset release -j $(JOBS) >&2

test: needs-build-test-python  ## build everything and run all tests, those of the Python package too
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS)
	ctest --preset gcc -j $(JOBS)
	$(MAKE) --no-print-directory test-python

# PYTHON=python3.13 make test-python: with another Python, of 3.11 and later.
test-python bench-python: VENV = build/venv-$(shell $(PYTHON) -c 'import sys; print(*sys.version_info[:2], sep=".")')
test-python: needs-build-python  ## build the Python package and run its tests
	[ -x $(VENV)/bin/python ] || $(PYTHON) -m venv $(VENV)
	$(VENV)/bin/pip install --quiet '.[test]'
	$(VENV)/bin/python -m pytest --quiet python/tests

# With clang, without what only Linux has, or with a sanitizer.
test-posix: needs-build-test
test-clang test-tsan test-asan: needs-build-test-clang
test-clang test-posix test-tsan test-asan: test-%:  ## the same in another way
	cmake --preset $*
	cmake --build --preset $* -j $(JOBS)
	ctest --preset $* -j $(JOBS)

# With the oldest CMake that is promised.
test-package: needs-build-clang-python  ## install it, and build outer projects with it
	[ -x build/cmake-3.22/bin/cmake ] || { python3 -m venv build/cmake-3.22 && \
	  build/cmake-3.22/bin/pip install --quiet cmake==3.22.6; }
	tests/package_test.sh build/cmake-3.22/bin/cmake build/package-test

# Debian's Python, which has Debian's Selenium.
test-report: needs-build-test-report  ## open the pages of `report` in headless Chromium
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS) --target path-filter
	/usr/bin/python3 tests/report_test.py build/gcc/program/path-filter

lint: needs-build-lint  ## check the format, that headers stand alone, which way includes go
	scripts/lint.sh

# How many lines of tests there are beside the code.
share:  ## count the lines of the tests
	@scripts/test-share.sh

# MUTANTS="--only git_glob --sample 50" make mutants: which changes of the code no test notices;
# an hour for all.
mutants: needs-build-test-mutants  ## change the code and see whether a test notices
	scripts/mutants.py -j $(JOBS) $(MUTANTS)

bench: needs-build-bench  ## measure
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	benchmarks/compare.sh build/bench

bench-python: test-python needs-bench  ## measure the Python package
	$(VENV)/bin/pip install --quiet pathspec
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	PYTHON=$(VENV)/bin/python benchmarks/compare.sh build/bench python

# SECONDS=900 make fuzz: how long it runs.
fuzz: needs-build-clang  ## run the fuzzer for SECONDS (60)
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	fuzz/run.sh $(or $(SECONDS),60)

# SECONDS=3600 make fuzz-git: how long git and the component are asked the same.
fuzz-git: needs-build-test  ## compare with git for SECONDS (60)
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS) --target git_differential
	build/gcc/fuzz/git_differential --seconds $(or $(SECONDS),60)

# For other systems, with zig (cmake/zig.cmake), by their names in it.
TARGETS = x86_64-linux-musl aarch64-linux-musl
UNTESTED = x86_64-freebsd aarch64-macos.11.0
for_each = for target in $(1); do export TARGET=$$target && cmake --preset cross && \
  cmake --build --preset cross -j $(JOBS)

static: needs-build-cross  ## build the program as one static file in build/cross/*-linux-musl/program
	scripts/cross-files.sh zig sources
	$(call for_each,$(TARGETS)) --target path-filter || exit; done

# TARGETS=aarch64-linux-gnu.2.28 make test-cross: of another system, with qemu where need be.
test-cross: needs-build-test-cross  ## run the tests of the static program, for both processors
	scripts/cross-files.sh zig sources $(if $(findstring gnu,$(TARGETS)),pythons)
	$(call for_each,$(TARGETS)) && ctest --preset cross -j $(JOBS) -E completion_test || exit; done

check-systems: needs-build-test-cross  ## compile the libraries for systems that are not to be had
	scripts/cross-files.sh zig sources
	$(call for_each,$(UNTESTED)) --target path_filter path_filter_git_config || exit; done

# WHEELS="win_amd64 macosx_11_0_arm64" make wheels: some of them.
wheels: needs-build-cross  ## make the wheels for all systems in build/wheels
	scripts/cross-files.sh zig sources pythons
	PATH="$(CURDIR)/build/zig/bin:$$PATH" build/zig/bin/python scripts/wheels.py -j $(JOBS) $(WHEELS)

test-wheels: wheels  ## test the wheels that this machine can run
	scripts/test-wheels.sh

# Under Wine. QUESTIONS=1000000 make test-windows: how much of what git says of random trees is
# held against the build for Windows; fewer than half have names that Windows can have.
test-windows: needs-build-test-cross-wine  ## test the program and the package for Windows
	scripts/cross-files.sh zig sources pythons
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS) --target git_differential
	mkdir -p build/cross/x86_64-windows-gnu
	build/gcc/fuzz/git_differential --seed 1 --questions $(or $(QUESTIONS),50000) \
	  --record build/cross/x86_64-windows-gnu/git_answers
	$(call for_each,x86_64-windows-gnu) && scripts/with-wine.sh ctest --preset cross -j $(JOBS) \
	  -E completion_test --repeat after-timeout:2 || exit; done
	PATH="$(CURDIR)/build/zig/bin:$$PATH" build/zig/bin/python scripts/wheels.py -j $(JOBS) win_amd64
	scripts/with-wine.sh scripts/test-windows-python.sh

dist: wheels package static needs-dist  ## make all that a release has in build/dist
	export TARGET=x86_64-windows-gnu && cmake --preset cross -DPATH_FILTER_EXTENSION=ON && \
	  cmake --build --preset cross -j $(JOBS) --target path-filter path_filter_sqlite
	scripts/dist.sh

# The trees that are installed and packed: of the optimised one what runs, and the libraries.
TREES = $(CURDIR)/build/release;path_filter;runtime;/;$(CURDIR)/build/static;path_filter;ALL;/;$(CURDIR)/build/shared;path_filter;ALL;/

libraries: build  ## build what is installed: the program, static and shared libraries
	cmake --preset static
	cmake --build --preset static -j $(JOBS)
	cmake --preset shared
	cmake --build --preset shared -j $(JOBS)

install: libraries  ## install below PREFIX (/usr/local), or below DESTDIR for a package
	cmake --install build/release --prefix "$(PREFIX)" --component runtime
	cmake --install build/static --prefix "$(PREFIX)"
	cmake --install build/shared --prefix "$(PREFIX)"
	case "$(DESTDIR):$(PREFIX):$$(id -u)" in :/usr/local:0|:/usr:0) ldconfig ;; esac

uninstall:  ## remove what the last install put in place, with its DESTDIR
	sed 's|^|$(DESTDIR)|' build/release/install_manifest_runtime.txt \
	  build/static/install_manifest.txt build/shared/install_manifest.txt | \
	  tr '\n' '\0' | xargs -0 rm -f
	sed -n 's|^\(.*/path[-_]filter\)/.*|$(DESTDIR)\1|p' build/release/install_manifest_runtime.txt \
	  build/static/install_manifest.txt | \
	  sort -ru | tr '\n' '\0' | xargs -0 -I{} find {} -depth -type d -empty -delete

package: libraries needs-package  ## make a .deb and a .tar.gz in build/packages
	cpack --config build/static/CPackConfig.cmake -G "DEB;TGZ" -B build/packages \
	  -D "CPACK_INSTALL_CMAKE_PROJECTS=$(TREES)"

packages: needs-build-test-python  ## install what is missing for `run` and `test`

.NOTPARALLEL:  # apt-get runs once at a time
needs-%:
	@scripts/install-packages.sh $(subst -, ,$*)

clean:  ## remove all that was built
	rm -rf build
