#include "utils/path_filter/index_scope/index_limits.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "utils/language_registry/language_registry.h"
#include "utils/path_filter/base/logger.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"

namespace path_filter {
namespace {

std::optional<double> number_in(std::string_view text) {
  text = internal::trim(text);
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// A real number as the shortest text that means it: 0.5, -100000.0, 1e-07.
std::string literal(double number) {
  const double size = std::fabs(number);
  const bool plain = size == 0 || (size >= 1e-4 && size < 1e16);
  char digits[32];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number,
                                 plain ? std::chars_format::fixed : std::chars_format::scientific);
  std::string text(digits, end.ptr);
  if (plain && text.find('.') == std::string::npos) text += ".0";
  return text;
}

/// The value as a person would write it in the configuration.
std::string literal(const ConfigValue& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value.value)) return std::to_string(*number);
  if (const auto* number = std::get_if<double>(&value.value)) return literal(*number);
  if (const auto* text = std::get_if<std::string>(&value.value)) return internal::quoted(*text);
  const auto* other = std::get_if<ConfigValue::Other>(&value.value);
  return other != nullptr ? other->literal : "None";
}

}  // namespace

namespace internal {

std::optional<std::int64_t> configured_bytes(const ConfigValue& size) {
  std::optional<double> number;
  if (const auto* integer = std::get_if<std::int64_t>(&size.value)) {
    number = static_cast<double>(*integer);
  } else if (const auto* real = std::get_if<double>(&size.value)) {
    number = *real;
  } else if (const auto* text = std::get_if<std::string>(&size.value)) {
    number = number_in(*text);
  }
  const double bytes = std::trunc(number.value_or(0) * static_cast<double>(MIB));
  if (!std::isfinite(bytes) || bytes <= 0) return std::nullopt;
  constexpr auto MOST = std::numeric_limits<std::int64_t>::max();
  return bytes >= static_cast<double>(MOST) ? MOST : static_cast<std::int64_t>(bytes);
}

std::optional<LanguageSet> configured_languages(std::span<const std::string> names) {
  if (names.empty()) return std::nullopt;
  LanguageSet set(names.begin(), names.end());
  if (set.contains("typescript")) set.insert("tsx");
  return set;
}

}  // namespace internal

IndexLimits IndexLimits::from_config(const IndexConfig& index) {
  for (const auto& [is_there, name] :
       {std::pair{index.max_file_size_mb.has_value(), "max_file_size_mb"},
        {index.languages.has_value(), "languages"}}) {
    if (!is_there)
      throw std::invalid_argument(std::string("the configuration has no index.") + name);
  }
  auto max_file_bytes = internal::configured_bytes(*index.max_file_size_mb);
  if (!max_file_bytes) {
    logger->warn(internal::UNUSABLE_SIZE_WARNING,
                 {literal(*index.max_file_size_mb), DEFAULT_MAX_FILE_SIZE_MB});
    max_file_bytes = DEFAULT_MAX_FILE_SIZE_MB * internal::MIB;
  }
  return {*max_file_bytes, internal::configured_languages(*index.languages)};
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
