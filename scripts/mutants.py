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
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
UNITS = re.compile(r"(utils|program|sqlite)/(?!.*_test\.).*\.(cpp|h)")
ASKS_ANEW = "fresh"  # a test of this name asks other questions on each run: no part of a score
LONGEST = 60  # seconds of computing by one program
SWAPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||",
           "||": "&&", "+": "-", "-": "+", "true": "false", "false": "true"}
Site = collections.namedtuple("Site", "file line begin end new what text")
Program = collections.namedtuple("Program", "command directory env target inputs seconds")


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
    code = re.sub(r"^ *(template|using|typedef|friend|namespace|struct|class|enum)\b[^;{]*",
                  lambda head: blank(head[0]), code, flags=re.M)
    while found := re.search(r"\bstatic_assert\(", code):
        end = closing(code, found.end() - 1)
        code = code[:found.start()] + blank(code[found.start():end]) + code[end:]
    return code


def condition_begin(code, question_mark):
    """Where the condition in front of a `?` begins."""
    depth = 0
    for at in range(question_mark - 1, 0, -1):
        depth += (code[at] in ")]}") - (code[at] in "([{")
        if depth < 0 or depth == 0 and (
                code[at] in ",;?" or re.search(r"\breturn$", code[max(0, at - 6):at + 1])
                or re.fullmatch("[^=!<>]=[^=]|[^:]:[^:]", code[at - 1:at + 2])):
            return at + 1
    return 0


def without_brackets(statement):
    while (shorter := re.sub(r"\([^()]*\)|\[[^][]*\]|\{[^{}]*\}", "", statement)) != statement:
        statement = shorter
    return statement


def changes(original, code):
    """Yields (begin, end, new text, what is done) for each place; `code` is the masked text."""
    for found in re.finditer(r"\b(?:if|while) \(", code):
        begin, end = found.end(), closing(code, found.end() - 1)
        declared = re.match(r"[^=(;]*[\w>&*\]] [&*]?(\w+) = [^;]*$", code[begin:end])
        begin += code[begin:end].rfind(";") + 1
        yield (begin, end, f"{original[begin:end]}; !{declared[1]}" if declared else
               f"!({original[begin:end]})", "condition negated")
    for found in re.finditer(r"\s\?\s", code):
        begin = condition_begin(code, found.start())
        yield begin, found.start(), f" !({original[begin:found.start()]})", "condition negated"
    for found in re.finditer(r"(?<=\s)(?:[<>=!]=|[<>+-]|&&|\|\|)(?=\s)|\b(?:true|false)\b", code):
        yield *found.span(), SWAPPED[found[0]], f"{found[0]} to {SWAPPED[found[0]]}"
    for found in re.finditer(r"(?<![\w.'])(0[xX][\da-fA-F']+|\d[\d']*)([uUlLzZ]*)(?![\w.'])", code):
        more = str(int(found[1].replace("'", ""), 16 if found[1][1:2] in ("x", "X") else 10) + 1)
        yield *found.span(), more + found[2], f"{found[0]} to {more}{found[2]}"
    for found in re.finditer(r"\b(?:break|continue)(?=;)", code):
        yield *found.span(), "", f"{found[0]} dropped"
    above = ";"
    for line in re.finditer(r"[^\n]*\S", code):
        begin = line.end() - len(line[0].lstrip())
        while control := re.compile(r"else |(?:if|while|for) (?=\()").match(code, begin):
            begin = control.end() if control[0] == "else " else closing(code, control.end()) + 2
        statement = code[begin:line.end()]
        if (re.search(r"[;{})]$|\b(else|case .*:|default:|private:|public:)$", above)
                and re.fullmatch(r"(?!\.)[*\w:.<>-]*( ([-+*/%&|^]|<<|>>)?= [^;]*)?;|[+-]{2}.*;",
                                 without_brackets(statement))
                and not re.match(r"\w*;|~?[A-Z]\w*\(|.*= (default|delete|0);", statement)):
            yield begin, line.end(), ";", "statement dropped"
        above = line[0].strip()


def sites(file, seed):
    """All places of a file, each behind the hash that chooses among them."""
    original = (ROOT / file).read_text()
    code = masked(original)
    lines = list(zip(code.split("\n"), original.split("\n")))
    occurrences = collections.Counter()
    for begin, end, new, what in sorted(changes(original, code)):
        begin += len(code[begin:end]) - len(code[begin:end].lstrip())
        number = code.count("\n", 0, begin)
        above = next((text.strip() for text, _ in reversed(lines[:number]) if text.strip()), "")
        text, shown = lines[number]
        key = (seed, above, shown[:len(text.rstrip())].strip(), what)
        occurrences[key] += 1
        rank = hashlib.sha256(repr((key, occurrences[key])).encode()).hexdigest()
        yield rank, Site(file, number + 1, begin, end, new, what, shown.strip())


def output(*command):
    return subprocess.run(command, check=True, cwd=ROOT, stdout=subprocess.PIPE, text=True).stdout


class Tree:
    """A copy of the project, its build and its test programs, which all pass."""

    def __init__(self, number):
        here = ROOT / "build" / "mutants" / str(number)
        self.source, self.build, self.log = here / "source", here / "build", here / "log"
        self.env = dict(os.environ, CCACHE_BASEDIR=str(here), CCACHE_NOHASHDIR="1",
                        CCACHE_DIR=str(here.parent / "ccache"))
        files = {file for file in output("git", "ls-files", "-co", "--exclude-standard").split("\n")
                 if (ROOT / file).is_file()}
        for copy in self.source.rglob("*"):
            if copy.is_file() and str(copy.relative_to(self.source)) not in files:
                copy.unlink()
        for file in files:  # what has not changed stays as it is, and is not built again
            copy = self.source / file
            if not copy.exists() or copy.read_bytes() != (ROOT / file).read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / file, copy)
        output("cmake", "-G", "Ninja", "-S", self.source, "-B", self.build, "-DCMAKE_BUILD_TYPE=",
               "-DCMAKE_CXX_FLAGS=-O0 -w -D_GLIBCXX_ASSERTIONS",
               "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
               *(["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []),
               *(["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold"] if shutil.which("ld.gold") else []))
        if not self.builds("all"):
            sys.exit(f"the unchanged tree does not build: {self.log}")
        programs = {}
        tests = output("ctest", "--test-dir", self.build, "--show-only=json-v1")
        for test in json.loads(tests)["tests"]:
            if ASKS_ANEW not in test["name"]:
                program = self.program(**test)
                programs[program.command] = program
        self.programs = sorted(map(self.timed, programs.values()), key=lambda each: each.seconds)

    def program(self, command, properties, **_):
        """Of which a test is part: its other tests are asked in the same run."""
        properties = {each["name"]: each["value"] for each in properties}
        if any(argument.startswith("--gtest_filter=") for argument in command):
            command = command[0], "--gtest_fail_fast"
        target, inputs = "all", None
        if command[0].startswith(str(self.build)):
            target = os.path.relpath(command[0], self.build)
            inputs = output("ninja", "-C", self.build, "-t", "inputs", target).split("\n")
        env = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []))
        return Program(tuple(command), properties["WORKING_DIRECTORY"], env, target, inputs, LONGEST)

    def timed(self, program):
        """The program with the time that it may take when something is wrong."""
        begin = time.monotonic()
        if not self.passes(program):
            sys.exit(f"the unchanged tree fails: {self.log}")
        return program._replace(seconds=min(LONGEST, 5 + 4 * int(time.monotonic() - begin)))

    def succeeds(self, command, directory, env, seconds):
        """Whether the command ends well with what it may take of time, memory and disk."""
        limits = ["timeout", "-s", "KILL", f"{5 * seconds}", "prlimit", f"--cpu={seconds}",
                  f"--as={8 << 30}", f"--fsize={1 << 30}", "--core=0"]
        with open(self.log, "w") as log:
            return subprocess.run([*limits, *command], cwd=directory, env=env, stdout=log,
                                  stderr=log, stdin=subprocess.DEVNULL).returncode == 0

    def builds(self, target):
        return self.succeeds(["ninja", "-C", self.build, target], self.source, self.env, 2 * LONGEST)

    def passes(self, program):
        # Not below the project, where git would find the project's repository.
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as scratch:
            os.chmod(scratch, 0o755)  # tests take on the rights of others
            env = self.env | program.env | {"TMPDIR": scratch}
            return self.succeeds(program.command, program.directory, env, program.seconds)

    def outcome(self, site):
        """What kills the change: "" when nothing does, None when it does not compile."""
        file = self.source / site.file
        original = file.read_text()
        try:
            file.write_text(original[:site.begin] + site.new + original[site.end:])
            for program in self.programs:
                if file.suffix == ".h" or program.inputs is None or str(file) in program.inputs:
                    if not self.builds(program.target):
                        return None
                    if not self.passes(program):
                        test = re.search(r"FAILED  \] (\S+)", self.log.read_text(errors="replace"))
                        return test[1] if test else f"{program.target} crashes or hangs"
            return ""
        finally:
            file.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--sample", type=int, default=200, help="how many changes count")
    parser.add_argument("--seed", type=int, default=1, help="another seed, another sample")
    parser.add_argument("--only", default="", metavar="PATTERN", help="only files of this name")
    parser.add_argument("--list", action="store_true", help="print the places, change nothing")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    options = parser.parse_args()
    files = [file for file in output("git", "ls-files").split("\n")
             if UNITS.fullmatch(file) and re.search(options.only, file)]
    queue = [site for _, site in sorted(each for file in files for each in sites(file, options.seed))]
    if options.list:
        for site in queue[:options.sample]:
            print(f"{site.file}:{site.line}: {site.what}: {site.text}")
        return
    trees = [Tree(number) for number in range(1, options.jobs + 1)]
    results, lock, places = {}, threading.Lock(), iter(queue)

    def work(tree):
        while True:
            with lock:  # no more are begun than may still count
                counted = sum(result is not None for result in results.values())
                site = next(places, None) if counted < options.sample else None
                if site is None:
                    return
                results[site] = ""
            result = tree.outcome(site)
            with lock:
                results[site] = result
                said = "does not compile" if result is None else result or "SURVIVED"
                print(f"{site.file}:{site.line}: {site.what}: {said}", flush=True)

    with concurrent.futures.ThreadPoolExecutor() as pool:
        list(pool.map(work, trees))
    counted = {site: result for site, result in results.items() if result is not None}
    print("\nsurvivors")
    for site in sorted(site for site, result in counted.items() if not result):
        print(f"{site.file}:{site.line}: {site.what}\n    {site.text}")
    print("\nkilled   of")
    for file in [*sorted({site.file for site in counted}), ""]:
        of_file = [result for site, result in counted.items() if site.file == (file or site.file)]
        print(f"{sum(map(bool, of_file)):6} {len(of_file):4}  {file or 'in all'}")
    print(f"{len(results) - len(counted)} more did not compile")


if __name__ == "__main__":
    main()
