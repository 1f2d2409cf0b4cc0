#!/usr/bin/env python3
"""Changes the code one place at a time and says which changes no test notices.

The sample is fixed: the places with the smallest hash of their line, the line above and the
change, so that code keeps its part of the sample when other code changes, or when it moves to
another file. Each changed tree is built, without optimization, and tested in a copy under
build/mutants. What does not compile does not count. A change is killed when a test fails, crashes
or hangs; the others are listed at the end: each is a hole in the tests, or makes no difference.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import queue
import re
import shutil
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
UNITS = re.compile(r"(utils|program|sqlite)/(?!.*(_test|platform_posix)\.).*\.(cpp|h)")
SWAPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||",
           "||": "&&", "+": "-", "-": "+", "true": "false", "false": "true"}
Site = collections.namedtuple("Site", "file line begin end new what text")


def blank(text, by=" "):
    return re.sub(r"[^\n]", by, text)


def closing(code, at):
    """Where the bracket closes that opens at `at`."""
    depth = 0
    for end in range(at, len(code)):
        depth += (code[end] in "([{") - (code[end] in ")]}")
        if depth == 0:
            return end
    return len(code)


def masked(code):
    """`code`, as long as before, with nothing in it but what may be changed: no comments,
    directives, content of texts, heads of templates and types, aliases and static assertions."""
    code = re.sub(r'//[^\n]*|/\*.*?\*/|^ *#(?:\\\n|[^\n])*|\bR"(\w*)\(.*?\)\1"|\b\d[\w\']*'
                  r'''|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+\'''',
                  lambda found: found[0] if found[0][0].isdigit() else
                  blank(found[0], "S" if found[0][0] in "\"'R" else " "), code, flags=re.S | re.M)
    heads = r"^ *(template|using|typedef|friend|namespace|struct|class|enum|static_assert)\b[^;{]*"
    return re.sub(heads, lambda head: blank(head[0]), code, flags=re.M)


# Of one line, behind a condition perhaps; neither a declaration nor a part of something longer.
STATEMENT = re.compile(r"""^[ ]*(?:else[ ]|(?:if|while|for)[ ]\(.*\)[ ])*
    ((?!~?[A-Z]\w*\()(?:[*\w.:<>[\]-]+\(.*\)                                  # a call
                       |[*\w.:<>[\]()-]+[ ](?:[-+*/%&|^]|<<|>>)?=[ ](?!delete|default|0;).*
                       |(?:\+\+|--).*);)[ ]*$""", re.M | re.X)


def changes(original, code):
    """Yields (begin, end, new text, what is done) for each place; `code` is the masked text."""
    for found in re.finditer(r"\b(?:if|while) \(", code):
        begin, end = found.end(), closing(code, found.end() - 1)
        declared = re.match(r"[^=(;]*[\w>&*\]] [&*]?(\w+) = [^;]*$", code[begin:end])
        begin += code[begin:end].rfind(";") + 1
        yield (begin, end, f"{original[begin:end]}; !{declared[1]}" if declared else
               f"!({original[begin:end]})", "condition negated")
    for found in re.finditer(r"(?<=\s)\?(?=\s)", code):  # at least the condition's last operand
        yield *found.span(), "== false ?", "condition negated"
    for found in re.finditer(r"(?<=\s)(?:[<>=!]=|[<>+-]|&&|\|\|)(?=\s)|\b(?:true|false)\b", code):
        yield *found.span(), SWAPPED[found[0]], f"{found[0]} to {SWAPPED[found[0]]}"
    for found in re.finditer(r"(?<![\w.'])(0[xX][\da-fA-F']+|\d[\d']*)([uUlLzZ]*)(?![\w.'])", code):
        more = str(int(found[1].replace("'", ""), 16 if found[1][1:2] in ("x", "X") else 10) + 1)
        yield *found.span(), more + found[2], f"{found[0]} to {more}{found[2]}"
    for found in re.finditer(r"\b(?:break|continue)(?=;)", code):
        yield *found.span(), "", f"{found[0]} dropped"
    for found in STATEMENT.finditer(code):
        yield *found.span(1), ";", "statement dropped"


def sites(file, seed):
    """All places of a file, each behind the hash that chooses among them."""
    original = (ROOT / file).read_text()
    code = masked(original)
    occurrences = collections.Counter()
    for begin, end, new, what in sorted(changes(original, code)):
        line = code.count("\n", 0, begin)
        length = len(code.split("\n")[line].rstrip())
        text = original.split("\n")[line][:length].strip()  # without a comment
        above = code[:code.rfind("\n", 0, begin) + 1].strip().split("\n")[-1].strip()
        key = (seed, above, text, what)
        occurrences[key] += 1
        rank = hashlib.sha256(repr((key, occurrences[key])).encode()).hexdigest()
        yield rank, Site(file, line + 1, begin, end, new, what, text)


def output(*command):
    return subprocess.run(command, check=True, cwd=ROOT, stdout=subprocess.PIPE, text=True).stdout


class Tree:
    """A copy of the project, its build and its test programs, which all pass."""

    def __init__(self, number, files):
        here = ROOT / "build" / "mutants" / str(number)
        self.source, self.build, self.log = here / "source", here / "build", here / "log"
        self.env = os.environ | {"CCACHE_DIR": str(here.parent / "ccache"),
                                 "CCACHE_BASEDIR": str(here), "CCACHE_NOHASHDIR": "1"}
        shutil.rmtree(self.source, ignore_errors=True)
        for file in files:
            (self.source / file).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / file, self.source / file)
        output("cmake", "-G", "Ninja", "-S", self.source, "-B", self.build, "-DCMAKE_BUILD_TYPE=",
               "-DCMAKE_CXX_FLAGS=-O0 -w -D_GLIBCXX_ASSERTIONS",
               "-DCMAKE_CXX_COMPILER_LAUNCHER=" + (shutil.which("ccache") or "env"),
               "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold",
               "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST")
        if not self.builds("all"):
            raise SystemExit(f"the unchanged tree does not build: {self.log}")
        listed = json.loads(output("ctest", "--test-dir", self.build, "--show-only=json-v1"))
        programs = {}
        for test in listed["tests"]:
            command = test["command"]
            if any(argument.startswith("--gtest_filter=") for argument in command):
                command = [command[0], "--gtest_fail_fast"]  # the program with all its tests
            programs[tuple(command)] = {each["name"]: each["value"]
                                        for each in test["properties"]}
        self.programs = []  # the fast ones first: (seconds, target, how to run it)
        for command, properties in programs.items():
            target = os.path.relpath(command[0], self.build)
            run = command, properties["WORKING_DIRECTORY"], properties.get("ENVIRONMENT", [])
            before = os.times().children_user
            if not self.succeeds(60, *run):
                raise SystemExit(f"the unchanged tree fails: {self.log}")
            self.programs.append((os.times().children_user - before,
                                  "all" if target.startswith("..") else target, run))
        # Those that need the whole build come last: after it, no other would seem changed.
        self.programs.sort(key=lambda program: (program[1] == "all", program[0]))

    def succeeds(self, seconds, command, directory, env=()):
        """Whether the command ends well with what it may take of time, memory and disk."""
        # Not below the project, where git would find the project's repository.
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as scratch, \
                open(self.log, "w") as log:
            os.chmod(scratch, 0o755)  # tests take on the rights of others
            limits = ["timeout", "-s", "KILL", f"{20 * seconds}", "prlimit", f"--cpu={seconds}",
                      f"--as={8 << 30}", f"--fsize={1 << 30}", "--core=0", "env", *env]
            return subprocess.run([*limits, f"TMPDIR={scratch}", *command], cwd=directory,
                                  env=self.env, stdin=subprocess.DEVNULL, stdout=log,
                                  stderr=log).returncode == 0

    def builds(self, target):
        return self.succeeds(60, ["ninja", "-C", self.build, target], self.source)

    def killer(self, site):
        """What kills the change: "" when nothing does, None when it does not compile."""
        file = self.source / site.file
        original = file.read_text()
        file.write_text(original[:site.begin] + site.new + original[site.end:])
        try:
            changed = set()  # several need the whole build
            for seconds, target, run in self.programs:
                if target not in changed:
                    if not self.builds(target):
                        return None
                    if "no work to do" in self.log.read_text():
                        continue  # the program is the unchanged one
                    changed.add(target)
                if not self.succeeds(5 + 3 * int(seconds), *run):
                    test = re.search(r"FAILED  \] (\S+)", self.log.read_text(errors="replace"))
                    return test[1] if test else os.path.basename(run[0][target == "all"])
            return ""
        finally:
            file.write_text(original)
            self.builds("all")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--sample", type=int, default=200, help="how many changes count")
    parser.add_argument("--seed", type=int, default=1, help="another seed, another sample")
    parser.add_argument("--only", default="", metavar="PATTERN", help="only files of this name")
    parser.add_argument("--list", action="store_true", help="print the places, change nothing")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    options = parser.parse_args()
    tracked = output("git", "ls-files").split()
    files = [file for file in tracked if UNITS.fullmatch(file) and re.search(options.only, file)]
    ranked = sorted(each for file in files for each in sites(file, options.seed))
    places = [site for _, site in ranked]
    if options.list:
        for site in places[:options.sample]:
            print(f"{site.file}:{site.line}: {site.what}: {site.text}")
        return
    trees = queue.SimpleQueue()
    for number in range(1, options.jobs + 1):
        trees.put(Tree(number, tracked))

    def killer(site):
        tree = trees.get()
        try:
            return tree.killer(site)
        finally:
            trees.put(tree)

    results = []
    pool = concurrent.futures.ThreadPoolExecutor(options.jobs)
    try:
        for site, by in zip(places, pool.map(killer, places)):
            said = "does not compile" if by is None else by or "SURVIVED"
            print(f"{site.file}:{site.line}: {site.what}: {said}", flush=True)
            results.append((site, by))
            if sum(by is not None for _, by in results) == options.sample:
                break
    finally:
        pool.shutdown(cancel_futures=True)
    counted = [(site, by) for site, by in results if by is not None]
    print("\nsurvivors")
    for site in sorted(site for site, by in counted if not by):
        print(f"{site.file}:{site.line}: {site.what}\n    {site.text}")
    print("\nkilled   of")
    for file in [*sorted({site.file for site, _ in counted}), ""]:
        killers = [by for site, by in counted if site.file.startswith(file)]
        print(f"{sum(map(bool, killers)):6} {len(killers):4}  {file or 'in all'}")
    print(f"{len(results) - len(counted)} more did not compile")


if __name__ == "__main__":
    main()
