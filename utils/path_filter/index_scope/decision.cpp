#include "utils/path_filter/index_scope/decision.h"

#include <algorithm>
#include <stdexcept>

#include "utils/path_filter/base/paths.h"
#include "utils/path_filter/base/quoting.h"
#include "utils/path_filter/base/utf8.h"

namespace path_filter {

namespace internal {

static_assert(REASONS[1].second.find(INDEX_DATA_DIR) != std::string_view::npos,
              "the reason names the directory");

std::string_view reason_of(Exclusion kind) {
  const auto* found =
      std::ranges::find(REASONS, kind, &std::pair<Exclusion, std::string_view>::first);
  if (found == REASONS.end()) {
    throw std::out_of_range("no fixed reason text for the kind " + std::string(to_string(kind)));
  }
  return found->second;
}

}  // namespace internal

Decision Decision::indexed(std::string_view language) {
  Decision decision(true);
  decision._language.emplace(language);
  return decision;
}

Decision Decision::excluded(Exclusion kind, std::optional<std::string_view> language) {
  Decision decision(false, kind);
  decision._fixed_reason = internal::reason_of(kind);
  if (language) decision._language.emplace(*language);
  return decision;
}

namespace {

bool is_absolute(std::string_view posix) {
  if (posix.empty()) return false;
  const bool ascii = static_cast<unsigned char>(posix.front()) < 0x80;
  const std::size_t drive = ascii ? 1 : internal::character_at(posix, 0).size;
  return posix.front() == '/' || posix.substr(drive, 2) == ":/";
}

}  // namespace

std::string_view _relative_posix(std::string_view path, std::string& storage) {
  const std::string_view posix = internal::with_slashes(path, storage);
  if (is_absolute(posix)) {
    throw std::invalid_argument(internal::quoted(path) + " is not relative to the repository root");
  }
  return posix;
}

}  // namespace path_filter

std::size_t std::hash<path_filter::Decision>::operator()(
    const path_filter::Decision& decision) const noexcept {
  // A scope's decisions differ in these.
  const std::size_t reason = std::hash<std::string_view>{}(decision.reason());
  return reason * 31 + std::hash<std::optional<std::string>>{}(decision.language());
}
