// The program as a user calls it: what it prints, and its exit status.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/temp_tree.h"

namespace {

class Program : public testing::Test {
 protected:
  Program() {
    tree.write("repo/.gitignore", "*.md\n!/keep.md\n/gen\n*\x1B*.c\n");
    tree.write("fake/git", "#!/bin/bash\neval \"$GIT\"\n");
    run("mkdir -p .git/info src node_modules/m ../bin ../home/.config/git; ln "
        "-s " PATH_FILTER_PROGRAM
        " ../bin/pf; "
        "printf x | tee .git/info/exclude src/web.ts {notes,keep}.md package-lock.json > "
        "node_modules/m/index.js; "
        "echo 'print()' > src/app.py; echo data.json > ../home/.config/git/ignore; printf {} > "
        "data.json; chmod 755 .. ../fake/git");
  }

  /// Runs a script of bash's in the repository, where "pf" is the program. Returns what it
  /// prints and, when not 0, its exit status, with short forms for what is often there.
  std::string run(const std::string& script) const {
    const std::string root = tree.root().string();
    tree.write("script",
               "trap 's=$?; [ $s = 0 ] || echo exit $s' EXIT; exec 2>&1 9>&1; "
               "S=--max-file-size-mb; set -o pipefail; cd repo\n" +
                   script);
    const std::string command =
        "cd " + root +
        "; env HOME=$PWD/home XDG_CONFIG_HOME= GIT_CONFIG_NOSYSTEM=1 LC_ALL=C PATH=$PWD/bin:$PATH "
        "FAKE=$PWD/fake:$PWD/bin:$PATH bash script | sed \"s:$PWD:TREE:g; s/\\[.*\\] \\[.*\\] "
        "\\[warning\\]/log:/; s/path-filter: /!/; s/\tgitignore\tignored by git's ignore rules/ "
        "IGNORED/; s/\tdirectory\tin a directory the index skips/ SKIPPED/; "
        "s/\tunknown_language\tof no language the index reads/ UNKNOWN/; s/\tindexed\tpython$/ "
        "PY/; s/ is over index.max_file_size_mb / OVER /; s/git does not say .* names; its default "
        "place is read/LATE/\"";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string text;
    std::array<char, 4096> buffer{};
    for (std::size_t count = 0; (count = ::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
      text.append(buffer.data(), count);
    }
    ::pclose(pipe);
    return text;
  }

  void expect(const std::vector<std::pair<std::string, std::string>>& rows) const {
    for (const auto& [script, outcome] : rows) EXPECT_EQ(run(script), outcome) << script;
  }

  TempTree tree;
};

TEST_F(Program, List) {
  tree.write("odd/[a,b]/{}.py");
  expect({{"for a in '' $PWD \"--languages ''\" --production -0; do eval pf list $a | tr '\\0' "
           "'\\n'; done | sort | uniq -c; pf list --excluded | sort; pf list --excluded -0 "
           ".git/info | tr '\\0' '\\t'; pf list --languages typescript . | sort; pf list "
           "../odd/[a,b]; pf list --languages rust,,python --languages go src",
           "      5 .gitignore\n      5 keep.md\n      5 src/app.py\n      5 src/web.ts\n.git/ "
           "SKIPPED\ndata.json IGNORED\nnode_modules/ SKIPPED\nnotes.md "
           "IGNORED\npackage-lock.json\tlockfile\ta dependency lock\nexclude "
           "UNKNOWN\t.gitignore\nsrc/web.ts\n{}.py\napp.py\n"},
          {"mkdir tests; touch tests/test_a.py; pf list --tests; pf list --production | grep -c .; "
           "pf list --production tests; pf list --json tests",
           R"(tests/test_a.py
4
test_a.py
{"path":"test_a.py","indexable":true,"kind":null,"reason":"","language":"python","test":true}
)"}});
}

TEST_F(Program, Check) {
  expect(
      {{"pf check src/app.py notes.md $PWD/x.py; pf check a.py; ln -s repo ../link; cd ../link; pf "
        "check $(pwd -P)/x.py; pf check --stdin < /dev/null && pf check /a x.py 'C:\\a.py'\nprintf "
        "'x.py\\0a\\nb.py' | pf check --root src/.. --stdin -0; pf check '{}'; pf check '[a,b.py]' "
        "'[]' a,b.py\npf check -v notes.md keep.md a/build/b/c.js x.min.js src/app.py x.go $S "
        "0.000002 --languages go\npf check --json -v notes.md /o $'\\377\\302\\233\\177.py' "
        "a/build/x a.min.js | sed 's/,\"reason.*\"test\"/-/; s/\"//g'",
        "src/app.py PY\nnotes.md IGNORED\nTREE/repo/x.py PY\na.py PY\nTREE/repo/x.py PY\n!/a: '/a' "
        "is not below the root TREE/repo/\nx.py PY\n!C:\\a.py: 'C:\\\\a.py' is not relative to the "
        "repository root\nx.py PY\n'a\\nb.py' PY\n{} UNKNOWN\n[a,b.py] UNKNOWN\n[] UNKNOWN\na,b.py "
        "PY\nnotes.md IGNORED\t.gitignore:1:*.md\nkeep.md\tlanguage\tmarkdown is not in "
        "index.languages\t.gitignore:2:!/keep.md\na/build/b/c.js "
        "SKIPPED\ta/build/\nx.min.js\tminified\ta minified bundle\t*.min.js\nsrc/app.py\tsize\t0.0 "
        "MB OVER (1.90735e-06)\t2 "
        "bytes\nx.go\tindexed\tgo\t\n{path:notes.md,indexable:false,kind:gitignore-:false,rule:{"
        "source:.gitignore,line:1,pattern:*.md}}\n{path:/o,error:'/o' is not below the root "
        "TREE/repo/"
        "}\n{path:\\ufffd\\u009b\\u007f.py,path_hex:ffc29b7f2e7079,indexable:true,kind:null-:false,"
        "rule:null}\n{path:a/build/x,indexable:false,kind:directory-:false,rule:null,directory:a/"
        "build}\n{path:a.min.js,indexable:false,kind:minified-:false,rule:null,glob:*.min.js}"
        "\nexit 2\n"}});
}

TEST_F(Program, NothingThatATerminalObeysGetsThrough) {
  tree.write(
      "odd/a\x1B\n\x7F\xC2\x80\xC2\x9F\xD8\x9C\xE2\x80\xAE\xE2\x80\xA8\xE2\x81\xA6\xE2\x81\xA9");
  tree.write("odd/c\xC2\xA0\xE2\x80\x8F\xFF\\'\t\r");
  tree.write("odd/d\xC3\xA9\xE2\x80\x90\xE2\x80\xAF\xE2\x81\xA5 \\'");  // nothing to escape
  expect(
      {{"pf list --excluded ../odd | sort; pf check -v $'a\\e.c' $'\\e/build/x'\nmkdir -p "
        "$'\\e/\\e/build'; mkfifo $'\\e/.gitignore'; pf summary $'\\e' | tail -n 1\nfor a in "
        "list\\ none list\\ - list\\ --config= check\\ /; do pf $a$'\\e'; done",
        "'a\\x1b\\n\\x7f\\xc2\\x80\\xc2\\x9f\\xd8\\x9c\\xe2\\x80\\xae\\xe2\\x80\\xa8\\xe2\\x81\\xa6"
        "\\xe2\\x81\\xa9' UNKNOWN\n'c\xC2\xA0\\xe2\\x80\\x8f\\xff\\\\\\'\\t\\r' "
        "UNKNOWN\nd\xC3\xA9\xE2\x80\x90\xE2\x80\xAF\xE2\x81\xA5 \\' UNKNOWN\n'a\\x1b.c' "
        "IGNORED\t.gitignore:4:'*\\x1b*.c'\n'\\x1b/build/x' SKIPPED\t'\\x1b/build/'\nlog: Cannot "
        "read the ignore rules in '\\x1b/.gitignore': Not a regular file\n           0             "
        "    0  '\\x1b/build/'  (directory)\n!the root 'none\\x1b': No such file or "
        "directory\n!'The following argument was not expected: -\\x1b'\nTry 'path-filter "
        "--help'.\n!cannot read the configuration '\\x1b': Is a directory\n!'/\\x1b': '/\\x1b' is "
        "not below the root TREE/repo/\nexit 2\n"}});
}

TEST_F(Program, Sizes) {
  tree.write("repo/p/big.py", std::string(2000, 'x'));
  expect(
      {{"n=$(printf 'd%.0s' {1..250}); cd p; for i in {1..20}; do mkdir $n; cd $n; done; cp "
        "~/../repo/p/big.py .; touch a.py; cd ~/../repo/p\npf summary $n | sed -n 2p; pf list $S "
        "0.001 $n | tail -c 5; mv $n build; pf summary | tail -n 1\nln -s gone gone.py; ln -s "
        "loop.py loop.py; pf check $S 0.001 none.py gone.py loop.py big.py/x.py big.py\ncd ..; "
        "mkdir -p q/shut; touch q/shut/a.py; chmod 744 q/shut; cd q; [ $UID = 0 ] && as='setpriv "
        "--reuid=65534 --clear-groups'\nfor c in list \"list $S 1\" summary \"check $S 1 "
        "shut/a.py\"; do $as pf $c | head -n 1; echo $?; done",
        "           2             2,000  python\na.py\n           2             2,000  build/  "
        "(directory)\nnone.py PY\ngone.py PY\nloop.py PY\nbig.py/x.py PY\nbig.py\tsize\t0.0 MB "
        "OVER (0.000999451)\nshut/a.py\n0\n!shut/a.py: cannot tell its size: Permission "
        "denied\n1\n!shut/a.py: cannot tell its size: Permission denied\n       files             "
        "bytes  indexed, by language\n1\n!shut/a.py: cannot tell its size: Permission "
        "denied\n2\n"}});
}

TEST_F(Program, WhatGitSaysOfItsExcludesFile) {
  tree.write("xdg/git/ignore", "xdg.py\n");
  const std::string home = "TREE/home/.config/git/ignore:1:data.json\n";
  expect({{"echo mine.py > mine; export PATH=$FAKE; ask() { env \"$@\" pf check -v data.json "
           "mine.py xdg.py | grep -o "
           "'[^\t]*:1:.*\\|^path.*' || echo none; }\nexit1='exit 1'; set +o pipefail; ask "
           "GIT=\"$exit1\"; ask GIT=\"$exit1\" XDG_CONFIG_HOME=../xdg; ask GIT=\"$exit1\" HOME=; "
           "ask --unset=HOME GIT=\"$exit1\"; ask PATH=../bin; ask GIT='[[ $* == *--global* ]] && "
           "printf mine\\\\0 || exit 128'; ask GIT='[[ $* == *--global* ]] && printf mine\\\\0 || "
           "exit 1'; ask GIT='printf mine\\\\0; kill -9 $$'; ask GIT='[[ $* == *--global* ]] || "
           "exit 128; sleep 4 9>&-; echo left >&9'; ask GIT='exec >&-; sleep 4 9>&-; echo left "
           ">&9'; ask GIT='printf \"$GIT_DIR$GIT_PREFIX$GIT_CONFIG_COUNT\\\\0\"' GIT_DIR=/ "
           "GIT_PREFIX=/ GIT_CONFIG_COUNT=mine",
           home + "../xdg/git/ignore:1:xdg.py\nnone\nnone\n" + home + "mine:1:mine.py\n" + home +
               home + "!LATE\n" + home + "!LATE\n" + home + "mine:1:mine.py\n"},
          {"export PATH=$FAKE GIT='sleep 3 9>&-; echo left >&9'; pf list & sleep 0.5; kill $!; "
           "wait $!",
           "exit 143\n"},
          {"git init -q; git config core.excludesFile ../repo/./mine; cd src; pf check --root .. "
           "-v mine.py\ngit config core.excludesFile ''; pf check --root .. data.json; rm "
           "../.git/HEAD; mkfifo ../.git/HEAD; timeout 20 pf check --root .. data.json",
           "mine.py IGNORED\t../repo/./mine:1:mine.py\ndata.json\tindexed\tjson\n!LATE\ndata.json "
           "IGNORED\nexit 1\n"}});
}

TEST_F(Program, ConfigurationUsageAndOutput) {
  tree.write("good.toml", "[index]\nmax_file_size_mb = \"0.000003\"\nlanguages = [\"python\"]\n");
  tree.write("date.toml", "[index]\nmax_file_size_mb = 1979-05-27\nlanguages = \"\"\n");
  expect(
      {{"c='pf check --config ../good.toml'; $c src/app.py src/web.ts; $c --languages '' x.go; $c "
        "$S 1 src/app.py; pf check --config ../date.toml src/app.py\nfor c in '[index\\n' 'index = "
        "3' '[index]\\nlanguages = \"go\"' '[index]\\nlanguages = [[\"a\"]]'; do printf \"$c\" > "
        "t; pf list --config t; done; pf list --config none\nfor a in 'list --bogus' 'list "
        "--production --tests' check 'summary none' 'check --root t a' --version; do pf $a || "
        "s+=$?; done; echo $s\nmkdir many; touch many/source_file_with_a_long_name_{1..2500}.py; "
        "pf list many | read; echo ${PIPESTATUS[0]}; pf list > /dev/full",
        "src/app.py\tsize\t0.0 MB OVER (2.86102e-06)\nsrc/web.ts\tlanguage\ttypescript is not in "
        "index.languages\nx.go\tindexed\tgo\nsrc/app.py PY\nlog: index.max_file_size_mb=1979-05-27 "
        "is not a positive number; using 10\nsrc/app.py PY\n!t:1:7: Error while parsing table "
        "header: expected ']', saw '\\n'\n!t: has no section [index]; write one, with "
        "max_file_size_mb or languages\n!t: index.languages='go' is not a list of language "
        "names\n!t: index.languages=[['a']] is not a list of language names\n!cannot read the "
        "configuration none: No such file or directory\n!The following argument was not expected: "
        "--bogus\nTry 'path-filter --help'.\n!--production excludes --tests\nTry 'path-filter "
        "--help'.\n!check: no paths; name some, or give --stdin\n!the root none: No such file or "
        "directory\n!the root t: Not a directory\npath-filter 0.1.0\n22222\n0\n!cannot write the "
        "output: No space left on device\nexit 2\n"}});
}

TEST_F(Program, SummaryAndLanguages) {
  for (std::size_t number = 1; number <= 11; ++number) {
    tree.write("repo/p" + std::to_string(number) + "/build/m/n/x", std::string(100 * number, 'x'));
  }
  tree.link("repo/p5/build/m/link", "../../../src");
  tree.write("repo/gen/deep/x", std::string(1234567, 'x'));
  tree.write("repo/tests/test_app.py", std::string(1000, 'x'));
  expect(
      {{"pf summary --languages python,go | head -n 12 | tr -s '\\n ' '@ '; pf summary | tail -n "
        "10 | awk '{printf $2 $4}'; pf summary src $S 0.000002 | tail -n 2\npf languages | grep "
        "-A4 ^groovy; pf languages | grep -A1 '^$\\|^test_\\|^lock' | cut -c-18; (pf languages "
        "--json | grep -A18 '\"groovy'; pf languages --json | grep -A1 '^  \"[tl]') | tr -d '\" "
        "\\n'",
        " files bytes indexed, by language@ 2 1,008 python@ 1 26 ignore-list@ 3 1,034 in all@ 1 "
        "1,000 of it test code@ files bytes left out, by kind@ 14 6,614 directory@ 3 1,234,570 "
        "gitignore@ 2 2 language@ 1 1 lockfile@ 20 1,241,187 in "
        "all@1,234,567(gitignore)1,100(directory)1,000(directory)900(directory)800(directory)700("
        "directory)600(directory)512(directory)400(directory)300(directory)           1            "
        "     8  size\n           1                 8  in all\ngroovy\tcode\n    extensions: "
        ".groovy .grt .gtpl .gvy\n    file names: Jenkinsfile\n    file name stems: Jenkinsfile\n  "
        "  test files: *Spec.groovy *Test.groovy *Tests.groovy\n\ntest_dir_names\n    __mocks__ "
        "__te\n\ntest_file_globs\n    *-test_data*.a\n\nlockfiles\n    "
        "package-lock.j\nname:groovy,tier:code,extensions:[.groovy,.grt,.gtpl,.gvy],file_names:["
        "Jenkinsfile],file_name_stems:[Jenkinsfile],test_file_globs:[*Spec.groovy,*Test.groovy,*"
        "Tests.groovy]languages:[{--test_dir_names:[__mocks__,--test_file_globs:[*-test_data*.adb,-"
        "-lockfiles:[package-lock.json,"}});
}

}  // namespace
