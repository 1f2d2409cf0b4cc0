#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "program/commands.h"
#include "program/output.h"
#include "utils/language_registry/catalog.h"
#include "utils/language_registry/language_registry.h"

namespace program {
namespace {

std::string joined(std::span<const std::string_view> texts) {
  std::string line;
  for (const std::string_view text : texts) {
    if (!line.empty()) line += ' ';
    line += text;
  }
  return line;
}

}  // namespace

int print_languages(bool json) {
  namespace registry = language_registry;
  Output output;
  if (json) {
    Json all;
    all["languages"] = Json::array();
    for (const registry::Language& language : registry::languages()) {
      all["languages"].push_back({{"name", language.name},
                                  {"tier", language.tier},
                                  {"extensions", language.extensions},
                                  {"file_names", language.file_names},
                                  {"file_name_stems", language.file_name_stems},
                                  {"test_file_globs", language.test_file_globs}});
    }
    all["test_dir_names"] = registry::test_dir_names();
    all["test_file_globs"] = registry::LANGUAGES.test_file_globs();
    all["lockfiles"] = registry::lockfile_names();
    output << all.dump(2) << '\n';
  } else {
    for (const registry::Language& language : registry::languages()) {
      output << language.name << '\t' << language.tier << '\n';
      const auto row = [&](std::string_view title, std::span<const std::string_view> texts) {
        if (!texts.empty()) output << "    " << title << joined(texts) << '\n';
      };
      row("extensions: ", language.extensions);
      row("file names: ", language.file_names);
      row("file name stems: ", language.file_name_stems);
      row("test files: ", language.test_file_globs);
    }
    output << "\ntest_dir_names\n    " << joined(registry::test_dir_names())
           << "\n\ntest_file_globs\n    " << joined(registry::LANGUAGES.test_file_globs())
           << "\n\nlockfiles\n    " << joined(registry::lockfile_names()) << '\n';
  }
  output.flush();
  return 0;
}

}  // namespace program
