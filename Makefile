# The two commands of a user are `make run ROOT=...` and `make test`; each installs what
# is missing (Debian packages, as root or with sudo).

ROOT ?= .
JOBS ?= $(shell nproc)
RELEASE = build/release/program/path-filter

.PHONY: run test build install packages test-clang test-posix test-tsan test-asan lint share mutants bench fuzz fuzz-git clean

run: build
	@$(RELEASE) list "$(ROOT)"

build: packages
	@{ cmake --preset release && cmake --build --preset release -j $(JOBS); } > build/build.log 2>&1 \
	  || { cat build/build.log >&2; exit 1; }

test: packages
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS)
	ctest --preset gcc -j $(JOBS)

test-clang test-posix test-tsan test-asan: test-%: packages
	cmake --preset $*
	cmake --build --preset $* -j $(JOBS)
	ctest --preset $* -j $(JOBS)

lint: packages
	scripts/lint.sh

# How many lines of tests there are beside the code.
share:
	@scripts/test-share.sh

# MUTANTS="--only git_glob --sample 50" make mutants: which changes of the code no test notices;
# an hour for all.
mutants: packages
	scripts/install-packages.sh mutants
	scripts/mutants.py -j $(JOBS) $(MUTANTS)

bench: packages
	scripts/install-packages.sh bench
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)
	benchmarks/compare.sh build/bench

# SECONDS=900 make fuzz: how long it runs.
fuzz: packages
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	fuzz/run.sh $(or $(SECONDS),60)

# SECONDS=3600 make fuzz-git: how long git and the component are asked the same.
fuzz-git: packages
	cmake --preset gcc
	cmake --build --preset gcc -j $(JOBS) --target git_differential
	build/gcc/fuzz/git_differential --seconds $(or $(SECONDS),60)

install: build
	cmake --install build/release

packages:
	@mkdir -p build
	@scripts/install-packages.sh build

clean:
	rm -rf build
