#include "utils/path_filter/index_limits.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/internal/text.h"
#include "utils/path_filter/logger.h"

namespace path_filter {
namespace {

template <typename... Case>
struct Cases : Case... {
  using Case::operator()...;
};
template <typename... Case>
Cases(Case...) -> Cases<Case...>;  // clang 14 does not deduce it

std::optional<double> number_in(std::string_view text) {
  text = internal::trim(text);
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<double> as_number(const ConfigValue& value) {
  using Result = std::optional<double>;
  return std::visit(Cases{[](bool flag) -> Result { return flag ? 1.0 : 0.0; },
                          [](std::int64_t number) -> Result { return static_cast<double>(number); },
                          [](double number) -> Result { return number; },
                          [](const std::string& text) -> Result { return number_in(text); },
                          [](const auto&) -> Result { return std::nullopt; }},
                    value.value);
}

/// The bytes in `mebibytes`, toward zero; 0 when that is no finite number.
std::int64_t bytes_in(double mebibytes) {
  const double bytes = std::trunc(mebibytes * static_cast<double>(internal::MIB));
  if (!std::isfinite(bytes) || bytes <= 0) return 0;
  constexpr auto MOST = std::numeric_limits<std::int64_t>::max();
  return bytes >= static_cast<double>(MOST) ? MOST : static_cast<std::int64_t>(bytes);
}

template <typename Number>
std::string number_literal(Number number) {
  char text[32];
  const auto end = std::to_chars(std::begin(text), std::end(text), number).ptr;
  return {text, end};
}

/// The value as a person would write it in the configuration.
std::string literal(const ConfigValue& value) {
  return std::visit(Cases{[](std::monostate) -> std::string { return "None"; },
                          [](bool flag) -> std::string { return flag ? "True" : "False"; },
                          [](std::int64_t number) { return number_literal(number); },
                          [](double number) {
                            std::string text = number_literal(number);
                            if (text.find_first_not_of("-0123456789") == std::string::npos)
                              text += ".0";
                            return text;
                          },
                          [](const std::string& text) { return internal::quoted(text); },
                          [](const ConfigValue::List& list) {
                            std::string text;
                            for (const ConfigValue& entry : list) {
                              text += (text.empty() ? "" : ", ") + literal(entry);
                            }
                            return "[" + text + "]";
                          },
                          [](const ConfigValue::Other& other) { return other.literal; }},
                    value.value);
}

[[noreturn]] void fail_not_a_list(const ConfigValue& value) {
  throw std::invalid_argument("index.languages=" + literal(value) +
                              " is not a list of language names");
}

LanguageSet language_names(const ConfigValue& languages) {
  LanguageSet names;
  const auto* whole = std::get_if<std::string>(&languages.value);
  if (languages.value.index() == 0 || (whole != nullptr && whole->empty())) return names;
  const auto* list = std::get_if<ConfigValue::List>(&languages.value);
  if (list == nullptr) fail_not_a_list(languages);
  for (const ConfigValue& entry : *list) {
    if (std::holds_alternative<ConfigValue::List>(entry.value)) fail_not_a_list(languages);
    const auto* text = std::get_if<std::string>(&entry.value);
    names.insert(text != nullptr ? *text : literal(entry));
  }
  return names;
}

const ConfigValue& field(const std::optional<ConfigValue>& value, const char* name) {
  if (!value) throw std::invalid_argument(std::string("the configuration has no index.") + name);
  return *value;
}

}  // namespace

IndexLimits IndexLimits::from_config(const IndexConfig& index) {
  const ConfigValue& size = field(index.max_file_size_mb, "max_file_size_mb");
  std::int64_t max_file_bytes = bytes_in(as_number(size).value_or(0));
  if (max_file_bytes <= 0) {
    logger->warn("index.max_file_size_mb=%r is not a positive number; using %d",
                 {literal(size), DEFAULT_MAX_FILE_SIZE_MB});
    max_file_bytes = DEFAULT_MAX_FILE_SIZE_MB * internal::MIB;
  }

  LanguageSet names = language_names(field(index.languages, "languages"));
  if (names.contains("typescript")) names.insert("tsx");
  if (names.empty()) return {max_file_bytes, std::nullopt};
  return {max_file_bytes, std::move(names)};
}

bool IndexLimits::allows(std::string_view language) const {
  if (!_languages) return true;
  const std::string_view tier = language_registry::tier_of(language);
  if (tier != "code" && tier != "docs") return true;
  return _languages->contains(language);
}

}  // namespace path_filter

std::size_t std::hash<path_filter::IndexLimits>::operator()(
    const path_filter::IndexLimits& limits) const noexcept {
  std::size_t result = std::hash<std::int64_t>{}(limits.max_file_bytes());
  if (limits.languages()) {
    for (const std::string& name : *limits.languages()) {
      result = result * 31 + std::hash<std::string>{}(name);
    }
  }
  return result;
}
