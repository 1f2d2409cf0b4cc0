// The program as a user calls it: what it prints, and its exit status.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/temp_tree.h"

namespace {

struct Outcome {
  int status;
  std::string output;
  std::string errors;

  std::vector<std::string> sorted_lines() const {
    std::istringstream stream(output);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    std::ranges::sort(lines);
    return lines;
  }
};

class Program : public testing::Test {
 protected:
  Program() {
    tree.write("repo/.git/info/exclude", "");
    tree.write("repo/.gitignore", "*.md\n!/keep.md\n");
    tree.write("repo/src/app.py", "print()\n");
    tree.write("repo/src/web.ts", "x");
    tree.write("repo/notes.md", "x");
    tree.write("repo/keep.md", "x");
    tree.write("repo/data.json", "{}");
    tree.write("repo/package-lock.json", "{}");
    tree.write("repo/image.bin", "x");
    tree.write("repo/node_modules/m/index.js", "x");
    tree.write("home/.config/git/ignore", "data.json\n");
  }

  /// Runs the program in the repository through the shell, which takes pipes and
  /// redirections in `arguments`.
  Outcome run(const std::string& arguments, const std::string& before = "") const {
    const std::string errors = (tree / "errors").string();
    const std::string command =
        "cd '" + (tree / "repo").string() + "' && env HOME='" + (tree / "home").string() +
        "' XDG_CONFIG_HOME= GIT_CONFIG_NOSYSTEM=1 bash -c '" + before + "\"$0\" " + arguments +
        "' " PATH_FILTER_PROGRAM " 2>'" + errors + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t count = 0; (count = ::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
      output.append(buffer.data(), count);
    }
    const int status = ::pclose(pipe);
    std::ostringstream read;
    read << std::ifstream(errors).rdbuf();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output, read.str()};
  }

  TempTree tree;
};

using Lines = std::vector<std::string>;

TEST_F(Program, List) {
  // data.json is left out by the file at the default place of core.excludesFile.
  const Lines in{".gitignore", "keep.md", "src/app.py", "src/web.ts"};
  EXPECT_EQ(run("list").sorted_lines(), in);
  EXPECT_EQ(run("list").status, 0);
  EXPECT_EQ(run("list \"$PWD\"").sorted_lines(), in);
  EXPECT_EQ(run("list -0 | tr \"\\\\0\" \"\\\\n\"").sorted_lines(), in);
  EXPECT_EQ(run("list --excluded").sorted_lines(),
            (Lines{".git/\tdirectory\tin a directory the index skips",
                   "data.json\tgitignore\tignored by git's ignore rules",
                   "image.bin\tunknown_language\tof no language the index reads",
                   "node_modules/\tdirectory\tin a directory the index skips",
                   "notes.md\tgitignore\tignored by git's ignore rules",
                   "package-lock.json\tlockfile\ta dependency lock"}))
      << run("list --excluded").output;
  EXPECT_EQ(run("list --languages typescript").sorted_lines(), (Lines{".gitignore", "src/web.ts"}));
  run("config", "git init -q . ; git config core.excludesFile /dev/null; : ");
  EXPECT_EQ(run("list").sorted_lines()[1], "data.json");
}

TEST_F(Program, ListBySurface) {
  tree.write("repo/tests/test_app.py");
  EXPECT_EQ(run("list --tests").sorted_lines(), Lines{"tests/test_app.py"});
  EXPECT_EQ(run("list --production").sorted_lines(),
            (Lines{".gitignore", "keep.md", "src/app.py", "src/web.ts"}));
  EXPECT_EQ(run("list --production tests").sorted_lines(), Lines{"test_app.py"});
  EXPECT_EQ(run("list --production --tests").status, 2);
}

TEST_F(Program, CheckAnswersInOrderAndByStatus) {
  const Outcome some = run("check src/app.py notes.md src/app.py");
  EXPECT_EQ(some.output,
            "src/app.py\tindexed\tpython\n"
            "notes.md\tgitignore\tignored by git's ignore rules\n"
            "src/app.py\tindexed\tpython\n");
  EXPECT_EQ(some.status, 1);
  EXPECT_EQ(run("check src/app.py").status, 0);
  const Outcome error = run("check /etc/passwd src/app.py");
  EXPECT_EQ(error.status, 2);
  EXPECT_EQ(error.output, "src/app.py\tindexed\tpython\n");
  EXPECT_NE(error.errors.find("/etc/passwd: "), std::string::npos) << error.errors;
  EXPECT_EQ(run("check \"$PWD/src/app.py\"").status, 0);
  EXPECT_EQ(run("check --root src/.. --stdin -0", "printf \"src/app.py\\\\0a\\\\nb.py\" | ").output,
            "src/app.py\tindexed\tpython\n'a\\nb.py'\tindexed\tpython\n");
  EXPECT_EQ(run("check --stdin", "printf \"\" | ").status, 0);
}

TEST_F(Program, CheckVerbose) {
  EXPECT_EQ(run("check -v notes.md keep.md a/node_modules/b/c.js x.min.js src/app.py "
                "--max-file-size-mb 0.000001")
                .output,
            "notes.md\tgitignore\tignored by git's ignore rules\t.gitignore:1:*.md\n"
            "keep.md\tindexed\tmarkdown\t.gitignore:2:!/keep.md\n"
            "a/node_modules/b/c.js\tdirectory\tin a directory the index skips\ta/node_modules/\n"
            "x.min.js\tminified\ta minified bundle\t*.min.js\n"
            "src/app.py\tsize\t0.0 MB is over index.max_file_size_mb (9.53674e-07)\t1 bytes\n");
}

TEST_F(Program, CheckJson) {
  const Outcome outcome =
      run("check --json -v src/app.py notes.md /outside $(printf \"\\\\377.py\") \"C:\\\\x.py\"");
  std::istringstream lines(outcome.output);
  std::vector<nlohmann::json> objects;
  for (std::string line; std::getline(lines, line);) objects.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(objects.size(), 5U) << outcome.errors;
  EXPECT_EQ(objects[0], nlohmann::json::parse(R"({"path": "src/app.py", "indexable": true,
      "kind": null, "reason": "", "language": "python", "test": false, "rule": null})"));
  EXPECT_EQ(objects[1], nlohmann::json::parse(R"({"path": "notes.md", "indexable": false,
      "kind": "gitignore", "reason": "ignored by git's ignore rules", "language": "markdown", "test": false,
      "rule": {"source": ".gitignore", "line": 1, "pattern": "*.md"}})"));
  EXPECT_EQ(objects[2]["path"], "/outside");
  EXPECT_TRUE(objects[2].contains("error"));
  EXPECT_EQ(objects[3]["path"], "\xEF\xBF\xBD.py");
  EXPECT_EQ(objects[3]["path_hex"], "ff2e7079");
  EXPECT_TRUE(objects[3]["indexable"]);
  EXPECT_EQ(objects[4]["error"], "'C:\\\\x.py' is not relative to the repository root");
  EXPECT_EQ(outcome.status, 2);
}

TEST_F(Program, ConfigurationAndItsMistakes) {
  tree.write("good.toml", "[index]\nmax_file_size_mb = \"0.000003\"\nlanguages = [\"python\"]\n");
  EXPECT_EQ(run("check --config ../good.toml src/app.py src/web.ts data.json -v").output,
            "src/app.py\tsize\t0.0 MB is over index.max_file_size_mb (2.86102e-06)\t3 bytes\n"
            "src/web.ts\tlanguage\ttypescript is not in index.languages\t\n"
            "data.json\tgitignore\tignored by git's ignore rules\t" +
                (tree / "home/.config/git/ignore").string() + ":1:data.json\n");
  EXPECT_EQ(run("check --config ../good.toml --max-file-size-mb 1 src/app.py").status, 0);

  tree.write("odd.toml", "[index]\nmax_file_size_mb = 1979-05-27\n");
  const Outcome odd = run("check --config ../odd.toml src/app.py");
  EXPECT_EQ(odd.status, 0);
  EXPECT_NE(odd.errors.find("index.max_file_size_mb=1979-05-27 is not a positive number; using 10"),
            std::string::npos)
      << odd.errors;

  struct Row {
    const char* content;
    const char* problem;
  };
  for (const Row& row : {Row{"[index\n", "bad.toml:1:"}, Row{"x = 1\n", "no section [index]"},
                         Row{"index = 3\n", "no section [index]"},
                         Row{"[index]\nlanguages = \"python\"\n",
                             "bad.toml: index.languages='python' is not a list"},
                         Row{"[index]\nlanguages = [[\"a\"]]\n", "is not a list"}}) {
    tree.write("bad.toml", row.content);
    const Outcome outcome = run("list --config ../bad.toml");
    EXPECT_EQ(outcome.status, 2) << row.content;
    EXPECT_NE(outcome.errors.find(row.problem), std::string::npos) << outcome.errors;
  }
  EXPECT_EQ(run("list --config ../missing.toml").status, 2);
}

TEST_F(Program, UsageAndRoots) {
  for (const char* arguments : {"", "bogus", "list --bogus", "check", "list missing",
                                "list notes.md", "check --root missing a.py", "summary missing"}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_EQ(outcome.output, "") << arguments;
    EXPECT_NE(outcome.errors.find("path-filter: "), std::string::npos) << outcome.errors;
  }
  for (const char* arguments : {"--help", "list --help", "check --help", "--version"}) {
    EXPECT_EQ(run(arguments).status, 0) << arguments;
  }
}

TEST_F(Program, OutputThatCannotBeWritten) {
  for (int number = 0; number < 5000; ++number) {
    tree.write("repo/many/source_file_with_a_long_name_" + std::to_string(number) + ".py");
  }
  const Outcome closed = run("list | head -n 1; exit ${PIPESTATUS[0]}");
  EXPECT_EQ(closed.status, 0);
  EXPECT_EQ(closed.errors, "");
  const Outcome full = run("list > /dev/full");
  EXPECT_EQ(full.status, 2);
  EXPECT_NE(full.errors.find("No space left"), std::string::npos) << full.errors;
}

TEST_F(Program, SummaryAndLanguages) {
  const Outcome summary = run("summary");
  EXPECT_EQ(summary.status, 0);
  for (const char* row : {"1                 8  python\n", "4                25  in all\n",
                          "1                 1  node_modules/  (directory)\n"}) {
    EXPECT_NE(summary.output.find(row), std::string::npos) << row << summary.output;
  }
  const auto languages = nlohmann::json::parse(run("languages --json").output);
  EXPECT_GE(languages["languages"].size(), 150U);
  for (const char* field : {"test_dir_names", "test_file_globs", "lockfiles"}) {
    EXPECT_FALSE(languages[field].empty()) << field;
  }
  EXPECT_NE(run("languages").output.find("\npython\tcode\n"), std::string::npos);
}

}  // namespace
