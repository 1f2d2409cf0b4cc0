#include "utils/language_registry/language_registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "utils/language_registry/catalog.h"

namespace language_registry {
namespace {

/// Asked before main and in no order relative to the registry's own translation unit.
const bool early = detect_language("early.cpp") == "cpp" &&
                   LANGUAGES.classify("early.md")->tier == "docs" &&
                   LANGUAGES.test_dir_names().contains("__tests__");

TEST(LanguageRegistry, ChoosesAmongThoseThatClaimAName) {
  // Extensions with several claims; cases; several dots; whole names first, stems last.
  std::istringstream rows(R"(
      a.h c  a.m objective-c  a.mm objective-cpp  a.ts typescript  a.tsx tsx  a.rs rust  a.pl perl
      a.t perl  a.md markdown  a.v verilog  a.r r  a.d d  a.fs fsharp  a.php php  a.html html  a.1 roff
      a.mo modelica  a.MD markdown  Foo.JAVA java  a.s assembly  a.S assembly  a.C cpp  a.H cpp  a.c c
      a.R r  a.d.ts typescript  a.blade.php blade  a.Blade.PHP blade  a.sword.php php  a.gradle.kts kotlin
      a.h.in c  a.min.js javascript  a.b.c.d.py python  .eslintrc.json jsonc  .a.yml yaml
      theme.sublime-color-scheme jsonc  a.xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.sublime-color-scheme jsonc
      CMakeLists.txt cmake  requirements.txt requirements  Makefile.PL perl  BUILD starlark  go.mod go-module
      LICENSE text  Dockerfile.dev dockerfile  dev.Dockerfile dockerfile  Dockerfile.md markdown
      a.tar.1 roff  a.P prolog  a.p openedge-abl  makefile.vc makefile  a.rb.tt ruby  a.tt erb
      a.1.in roff  a.h_shipped c  .env.example dotenv  example.env dotenv  a.b.yml.example yaml)");
  for (std::string file, language; rows >> file >> language;)
    EXPECT_EQ(detect_language(file), language) << file;
}

TEST(LanguageRegistry, KnowsNoLanguageForOtherNames) {
  using namespace std::string_literals;
  const std::string many(1 << 20, 'x'), dots(1 << 20, '.');
  for (const std::string& name :
       {""s, "."s, ".."s, "a"s, "a."s, ".c"s, "c"s, "py"s, "a.out"s, "a.tar.gz"s, "Makefilex"s,
        "xMakefile"s, "XDockerfile.dev"s, "makeFILE"s, ".sublime-color-scheme"s, "a.c~"s, "a.c\n"s,
        "a.c/"s, "a.c\0"s})
    EXPECT_TRUE(!detect_language(name) && !LANGUAGES.classify(name) && !is_lockfile(name)) << name;
  for (const std::string& name : {"a.\0c"s, "\xff\xfe.\x80\xbf"s, "a.é"s, many, dots,
                                  many + ".unknown", "a." + many, "a.@"s, "a.["s, "a.\xe3"s})
    EXPECT_EQ(detect_language(name), std::nullopt) << name.substr(0, 40);
  for (const std::string& name : {many + ".py", dots + "py", "\xff\xfe.py"s})
    EXPECT_EQ(detect_language(name), "python");
  for (const char* language : {"", "no-such-language"}) EXPECT_EQ(tier_of(language), "");
}

TEST(LanguageRegistry, KnowsNoLanguageForWhatHoldsSecretsOrIsBinary) {
  // Though most of them end in an extension of a language, or are claimed by one in the data.
  std::istringstream names(R"(
      .env .env.local .env.production a.env .envrc .npmrc .netrc .pypirc .htpasswd .my.cnf id_rsa
      .git-credentials .bash_history .Rhistory a.tfstate a.tfstate.backup a.tfvars a.tfvars.json
      credentials.json client_secret.json secrets.json secrets.yml secrets.yaml .secrets.toml a.key
      key.properties a.pem a.p8 django.mo a.mod a.res a.boot liba.so.1 LIBA.SO.2 a.log.9 a.exe.sig)");
  for (std::string name; names >> name;)
    EXPECT_TRUE(!detect_language(name) && !LANGUAGES.classify(name)) << name;
}

TEST(LanguageRegistry, FindsWhatTheCatalogLists) {
  EXPECT_TRUE(early && languages().size() >= 150);
  std::vector<std::string_view> globs;
  for (const Language& language : languages()) {
    EXPECT_EQ(tier_of(language.name), language.tier);
    const auto expect = [&](const std::string& name) {
      // Within a longer text: neither what is around a name nor its length is read.
      const std::string around = "/s.rs" + name + ".pyx";
      const auto view = std::string_view(around).substr(5, name.size());
      EXPECT_EQ(detect_language(view), language.name) << name;
      const LanguageRecord* record = LANGUAGES.classify(view);
      ASSERT_TRUE(record != nullptr && record->tier == language.tier) << name;
      EXPECT_TRUE(std::ranges::equal(record->test_file_globs, language.test_file_globs)) << name;
    };
    for (const std::string_view extension : language.extensions) {
      for (std::size_t size = 1; size <= 9; ++size)
        expect(std::string(size, 'x').append(extension));
      std::string capitals = "x" + std::string(extension);
      for (char& c : capitals) c = static_cast<char>(std::toupper(c));
      if (std::string_view(".c.h.p").find(extension) == std::string_view::npos) expect(capitals);
    }
    for (const std::string_view name : language.file_names) expect(std::string(name));
    for (const std::string_view stem : language.file_name_stems) expect(std::string(stem) + ".zzz");
    for (const std::string_view glob : language.test_file_globs) {
      globs.push_back(glob);
      std::string name(glob);
      for (std::size_t star; (star = name.find('*')) != name.npos;) name.replace(star, 1, "x");
      expect(name);
    }
  }
  EXPECT_TRUE(std::ranges::equal(LANGUAGES.test_file_globs(), globs));
}

TEST(LanguageRegistry, KnowsTheConventionsOfCommonTools) {
  std::istringstream rows(R"(a.py test_*.py  a.py *_test.py  a.go *_test.go  a.js *.test.js
      a.tsx *.spec.tsx  A.java Test*.java  A.java *IT.java  A.cs *Tests.cs  a.rb *_spec.rb
      A.php *Test.php  a.cc *_unittest.cc  A.swift *Tests.swift  a.t *.t  a.R test-*.R)");
  for (std::string file, glob; rows >> file >> glob;)
    EXPECT_EQ(std::ranges::count(LANGUAGES.classify(file)->test_file_globs, glob), 1) << glob;
  const TextSet& names = LANGUAGES.test_dir_names();
  EXPECT_TRUE(names.contains("test") && names.contains("__tests__") && names.contains("__mocks__"));
  EXPECT_FALSE(names.contains("__snapshots__") || names.contains("Tests") || names.contains(""));
}

TEST(LanguageRegistry, TellsLockFiles) {
  for (const std::string_view row : lockfile_names()) {
    std::string name(row);
    if (const std::size_t star = name.find('*'); star != name.npos) name.replace(star, 1, "3.12");
    EXPECT_TRUE(is_lockfile(name)) << name;
  }
  // A pattern's ends may touch, but not overlap, and both count.
  EXPECT_TRUE(is_lockfile("packages..lock.json") && is_lockfile("pylock.dev.toml"));
  for (const char* name : {"package.json", "cargo.lock", "my-yarn.lock", "yarn.lock.bak", ".lock",
                           "lock.c", "pylock.py", "pylock.toml.x", "pylock..tom", "xpylock.a.toml",
                           "packages.json", "src/yarn.lock"})
    EXPECT_FALSE(is_lockfile(name)) << name;
}

}  // namespace
}  // namespace language_registry
