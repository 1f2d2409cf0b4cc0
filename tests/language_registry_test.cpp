#include "utils/language_registry/language_registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utils/language_registry/catalog.h"

namespace language_registry {
namespace {

using namespace std::string_view_literals;

/// Asked before main and in no order relative to the registry's own translation unit.
const bool detected_early = detect_language("early.cpp") == "cpp" && is_lockfile("go.sum") &&
                            LANGUAGES.classify("early.md")->tier == "docs" &&
                            LANGUAGES.test_dir_names().contains("__tests__"sv);

TEST(LanguageRegistryTest, AnswersDuringStaticInitialisation) { EXPECT_TRUE(detected_early); }

struct Detection {
  std::string_view file;
  std::string_view language;
  std::string_view tier;
};

constexpr Detection detections[] = {
    // One extension, one language.
    {"main.py", "python", "code"},
    {"a.go", "go", "code"},
    {"Program.cs", "csharp", "code"},
    {"x.jsx", "javascript", "code"},
    {"lib.mjs", "javascript", "code"},
    {"index.cts", "typescript", "code"},
    {"App.vue", "vue", "code"},
    {"schema.proto", "protobuf", "code"},
    {"query.sql", "sql", "code"},
    {"board.dtsi", "devicetree", "code"},
    {"package.json", "json", "data"},
    {"Cargo.toml", "toml", "data"},
    {"pom.csproj", "xml", "data"},
    {"setup.cfg", "ini", "data"},
    {"page.html", "html", "markup"},
    {"guide.rst", "rst", "docs"},
    {"guide.adoc", "asciidoc", "docs"},
    {"ls.1", "roff", "docs"},
    {"notes.txt", "text", "docs"},
    {"paper.tex", "tex", "docs"},
    {"fr.po", "gettext-catalog", "data"},

    // Extensions that several languages claim.
    {"vector.h", "c", "code"},
    {"view.m", "objective-c", "code"},
    {"view.mm", "objective-cpp", "code"},
    {"main.ts", "typescript", "code"},
    {"view.tsx", "tsx", "code"},
    {"main.rs", "rust", "code"},
    {"run.pl", "perl", "code"},
    {"Mod.pm", "perl", "code"},
    {"basic.t", "perl", "code"},
    {"README.md", "markdown", "docs"},
    {"cpu.v", "verilog", "code"},
    {"plot.r", "r", "code"},
    {"app.d", "d", "code"},
    {"Lib.fs", "fsharp", "code"},
    {"parse.ml", "ocaml", "code"},
    {"site.php", "php", "code"},
    {"player.gd", "gdscript", "code"},
    {"a.lisp", "common-lisp", "code"},
    {"ci.yaml", "yaml", "data"},
    {"ci.yml", "yaml", "data"},
    {"app.properties", "java-properties", "data"},
    {"Info.plist", "xml", "data"},
    {"kernel.spec", "rpm-spec", "config"},

    // Case: the exact one first, then lower case.
    {"README.MD", "markdown", "docs"},
    {"Foo.JAVA", "java", "code"},
    {"entry.s", "assembly", "code"},
    {"entry.S", "assembly", "code"},
    {"old.C", "cpp", "code"},
    {"old.H", "cpp", "code"},
    {"old.c", "c", "code"},
    {"Model.R", "r", "code"},
    {"Views.Blade.PHP", "blade", "markup"},

    // Several dots: the longest extension that is known.
    {"index.d.ts", "typescript", "code"},
    {"home.blade.php", "blade", "markup"},
    {"home.sword.php", "php", "code"},
    {"build.gradle", "gradle", "code"},
    {"build.gradle.kts", "kotlin", "code"},
    {"build.zig.zon", "zig", "code"},
    {"state.tfstate.backup", "json", "data"},
    {"jquery.min.js", "javascript", "code"},
    {"a.b.c.d.e.f.py", "python", "code"},
    {".eslintrc.json", "jsonc", "data"},
    {".travis.yml", "yaml", "data"},
    {"theme.sublime-color-scheme", "jsonc", "data"},

    // Whole names, which go before extensions.
    {"CMakeLists.txt", "cmake", "code"},
    {"requirements.txt", "requirements", "config"},
    {"Makefile", "makefile", "code"},
    {"makefile", "makefile", "code"},
    {"Makefile.am", "makefile", "code"},
    {"Makefile.PL", "perl", "code"},
    {"Kbuild", "makefile", "code"},
    {"Kconfig", "kconfig", "config"},
    {"Dockerfile", "dockerfile", "config"},
    {"BUILD", "starlark", "code"},
    {"WORKSPACE", "starlark", "code"},
    {"Rakefile", "ruby", "code"},
    {"Gemfile", "ruby", "code"},
    {"Vagrantfile", "ruby", "code"},
    {"Jenkinsfile", "groovy", "code"},
    {"go.mod", "go-module", "config"},
    {".bashrc", "shell", "code"},
    {".gitignore", "ignore-list", "config"},
    {"LICENSE", "text", "docs"},
    {"README", "text", "docs"},

    // A known stem, when the extension says nothing.
    {"Dockerfile.dev", "dockerfile", "config"},
    {"Makefile.build", "makefile", "code"},
    {"Kconfig.debug", "kconfig", "config"},
    {"dev.Dockerfile", "dockerfile", "config"},
    {"Dockerfile.md", "markdown", "docs"},
};

TEST(LanguageRegistryTest, DetectsTheLanguageAndItsTier) {
  for (const auto& [file, language, tier] : detections) {
    SCOPED_TRACE(file);
    EXPECT_EQ(detect_language(file), language);
    EXPECT_EQ(tier_of(language), tier);
    const LanguageRecord* const record = LANGUAGES.classify(file);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->tier, tier);
  }
}

TEST(LanguageRegistryTest, KnowsNoLanguageForOtherNames) {
  const std::string long_name(1 << 20, 'x');
  const std::string many_dots(1 << 20, '.');
  const std::string names[] = {
      "",
      ".",
      "..",
      "...",
      "a",
      "a.",
      ".c",
      "c",
      "py",
      "photo.png",
      "a.out",
      "libz.so",
      "core.o",
      "archive.tar.gz",
      "doc.pdf",
      "Makefilex",
      "xMakefile",
      "XDockerfile.dev",
      "makeFILE",
      "a.c ",
      "a.c~",
      "a.c\n",
      "a.c/",
      std::string("a.c\0", 4),
      std::string("a.\0c", 4),
      std::string("\0", 1),
      std::string("Makefile\0", 9),
      "\xff\xfe.\x80\xbf",
      "a.\xc3\xa9",
      // The bytes next to the letters in either case and the sign bit, which lower-casing must
      // leave alone.
      "a.@",
      "a.[",
      "a.\xe3",
      "a.\xe3"
      "c",
      long_name,
      many_dots,
      long_name + ".unknown",
      "a." + long_name,
  };
  for (const std::string& name : names) {
    SCOPED_TRACE(name.substr(0, 40));
    EXPECT_EQ(detect_language(name), std::nullopt);
    EXPECT_EQ(LANGUAGES.classify(name), nullptr);
    EXPECT_FALSE(is_lockfile(name));
  }
  EXPECT_EQ(detect_language(long_name + ".py"), "python");
  EXPECT_EQ(detect_language(many_dots + "py"), "python");
  EXPECT_EQ(detect_language("\xff\xfe.py"), "python");
  EXPECT_EQ(tier_of(""), "");
  EXPECT_EQ(tier_of("no-such-language"), "");
}

/// Texts are compared by machine words that end where the text does. A view into the middle of a
/// buffer must neither see its surroundings nor depend on its length.
TEST(LanguageRegistryTest, ReadsOnlyTheName) {
  const std::string_view buffer = "/src/Makefile.rs.pyx";
  EXPECT_EQ(detect_language(buffer.substr(5, 8)), "makefile");
  EXPECT_EQ(detect_language(buffer.substr(5, 11)), "rust");
  EXPECT_EQ(detect_language(buffer.substr(5, 14)), "python");
  EXPECT_EQ(detect_language(buffer.substr(13, 3)), std::nullopt);
  EXPECT_EQ(detect_language(buffer.substr(12, 4)), "rust");
  EXPECT_EQ(detect_language(std::string_view()), std::nullopt);
}

TEST(LanguageRegistryTest, FindsWhatTheCatalogLists) {
  ASSERT_GE(languages().size(), 150u);
  for (const Language& language : languages()) {
    EXPECT_EQ(tier_of(language.name), language.tier);
    EXPECT_FALSE(language.extensions.empty() && language.file_names.empty()) << language.name;
    EXPECT_TRUE(
        std::set({"code"sv, "docs"sv, "data"sv, "markup"sv, "config"sv}).contains(language.tier));
    EXPECT_TRUE(std::ranges::all_of(language.name, [](unsigned char c) {
      return std::islower(c) || std::isdigit(c) || c == '-';
    })) << language.name;

    for (const std::string_view extension : language.extensions) {
      // Prefixes of many lengths, so that the extension lies at every offset in a machine word.
      for (std::size_t size = 1; size <= 9; ++size) {
        const std::string name = std::string(size, 'x') + std::string(extension);
        EXPECT_EQ(detect_language(name), language.name) << name;
      }
      std::string capitals = "x" + std::string(extension);
      std::ranges::transform(capitals, capitals.begin(),
                             [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
      if (extension != ".c" && extension != ".h") {
        EXPECT_EQ(detect_language(capitals), language.name) << capitals;
      }
    }
    for (const std::string_view name : language.file_names) {
      EXPECT_EQ(detect_language(name), language.name) << name;
    }
    for (const std::string_view stem : language.file_name_stems) {
      EXPECT_EQ(detect_language(std::string(stem) + ".zzz"), language.name) << stem;
    }
  }
}

/// A glob that its own language's files cannot match would never be tried for the right file.
TEST(LanguageRegistryTest, TestGlobsMatchFilesOfTheirLanguage) {
  std::vector<std::string_view> all;
  for (const Language& language : languages()) {
    for (const std::string_view glob : language.test_file_globs) {
      all.push_back(glob);
      std::string name(glob);
      for (std::size_t star; (star = name.find('*')) != name.npos;) name.replace(star, 1, "x");
      EXPECT_EQ(detect_language(name), language.name) << glob;
      const LanguageRecord* const record = LANGUAGES.classify(name);
      ASSERT_NE(record, nullptr);
      EXPECT_TRUE(std::ranges::equal(record->test_file_globs, language.test_file_globs));
      EXPECT_EQ(name.find_first_of("?[]\\/{}"), name.npos) << glob;
    }
  }
  EXPECT_TRUE(std::ranges::equal(LANGUAGES.test_file_globs(), all));
  EXPECT_EQ(std::set(all.begin(), all.end()).size(), all.size()) << "a glob is listed twice";
}

TEST(LanguageRegistryTest, HasTheConventionsOfCommonTestTools) {
  constexpr std::pair<std::string_view, std::string_view> conventions[] = {
      {"a.py", "test_*.py"},       {"a.py", "*_test.py"},
      {"a.go", "*_test.go"},       {"a.js", "*.test.js"},
      {"a.mjs", "*.spec.mjs"},     {"a.ts", "*.test.ts"},
      {"a.tsx", "*.spec.tsx"},     {"A.java", "Test*.java"},
      {"A.java", "*IT.java"},      {"A.cs", "*Tests.cs"},
      {"a.rb", "*_spec.rb"},       {"A.php", "*Test.php"},
      {"a.exs", "*_test.exs"},     {"a.t", "*.t"},
      {"A.hs", "*Spec.hs"},        {"a.cc", "*_unittest.cc"},
      {"A.swift", "*Tests.swift"}, {"a.dart", "*_test.dart"},
      {"a.sol", "*.t.sol"},        {"a.ps1", "*.Tests.ps1"},
      {"a.R", "test-*.R"},
  };
  for (const auto& [file, glob] : conventions) {
    const LanguageRecord* const record = LANGUAGES.classify(file);
    ASSERT_NE(record, nullptr) << file;
    EXPECT_EQ(std::ranges::count(record->test_file_globs, glob), 1) << file << " " << glob;
  }
}

TEST(LanguageRegistryTest, NamesTestDirectories) {
  const TextSet& names = LANGUAGES.test_dir_names();
  for (const std::string_view name : {"test"sv, "tests"sv, "spec"sv, "__tests__"sv, "__mocks__"sv,
                                      "testdata"sv, "androidtest"sv}) {
    EXPECT_TRUE(names.contains(name)) << name;
  }
  for (const std::string_view name :
       {"__snapshots__"sv, "testing"sv, "Tests"sv, "src"sv, "fixtures"sv, ""sv}) {
    EXPECT_FALSE(names.contains(name)) << name;
  }
  for (const std::string& name : names) {
    EXPECT_TRUE(std::ranges::none_of(name, [](unsigned char c) { return std::isupper(c); }));
  }
  EXPECT_EQ(names.size(), test_dir_names().size());
  EXPECT_EQ(&names, &LANGUAGES.test_dir_names());
}

TEST(LanguageRegistryTest, TellsLockFiles) {
  for (const std::string_view name : lockfile_names()) {
    std::string file(name);
    if (const std::size_t star = file.find('*'); star != file.npos) file.replace(star, 1, "3.12");
    EXPECT_TRUE(is_lockfile(file)) << file;
  }
  for (const std::string_view name :
       {"package-lock.json"sv, "yarn.lock"sv, "pnpm-lock.yaml"sv, "bun.lockb"sv, "Cargo.lock"sv,
        "poetry.lock"sv, "uv.lock"sv, "Gemfile.lock"sv, "composer.lock"sv, "go.sum"sv,
        "Package.resolved"sv, "packages.App.lock.json"sv, "pylock.dev.toml"sv,
        ".terraform.lock.hcl"sv, "flake.lock"sv, "gradle.lockfile"sv, "tool.opam.locked"sv}) {
    EXPECT_TRUE(is_lockfile(name)) << name;
  }
  for (const std::string_view name :
       {"package.json"sv, "Cargo.toml"sv, "go.mod"sv, "cargo.lock"sv, "my-yarn.lock"sv,
        "yarn.lock.bak"sv, "spin.lock"sv, "lock"sv, ".lock"sv, "lock.c"sv, "pylock.py"sv,
        "pylock..tom"sv, "packages.lock"sv, "packages.json"sv, "Manifest-v1"sv,
        "src/yarn.lock"sv}) {
    EXPECT_FALSE(is_lockfile(name)) << name;
  }
}

}  // namespace
}  // namespace language_registry
