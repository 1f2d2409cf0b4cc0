// Runs a fuzz target without libFuzzer, on files and on random inputs. A random input lies in a
// file while it runs, so that it is there in whatever way the target ends.

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

constexpr std::string_view USAGE =
    "usage: tree_fuzzer COUNT [--seed N] [FILE]...\n"
    "Runs the files, then COUNT random inputs, which are the same with the same seed. It ends at\n"
    "the first failure. A random input that fails is then in tree_fuzzer.failing, in the current\n"
    "directory; rename it, and `tree_fuzzer 0 NAME` runs it again.\n";

static std::optional<unsigned> number(std::string_view text) {
  unsigned value = 0;
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, value);
  return error == std::errc() && end == last ? std::optional(value) : std::nullopt;
}

int main(int count, char** arguments) {
  const auto argument = [&](int at) { return at < count ? std::string_view(arguments[at]) : ""; };
  const bool seeded = argument(2) == "--seed";
  const auto inputs = number(argument(1));
  const auto seed = seeded ? number(argument(3)) : std::random_device{}();
  if (!inputs || !seed) {
    const bool asked = argument(1) == "--help";
    (asked ? std::cout : std::cerr) << USAGE;
    return asked ? 0 : 2;
  }
  const auto run = [](const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  };
  for (int at = seeded ? 4 : 2; at < count; ++at) {
    std::cout << arguments[at] << std::endl;
    std::ifstream file(arguments[at], std::ios::binary);
    if (!file) {
      std::cerr << "tree_fuzzer: cannot read " << arguments[at] << '\n' << USAGE;
      return 2;
    }
    run({std::istreambuf_iterator<char>(file), {}});
  }
  const auto failing = std::filesystem::absolute("tree_fuzzer.failing");
  std::cout << "seed " << *seed << "; an input that fails is left in " << failing << std::endl;
  std::mt19937 random(*seed);
  for (unsigned left = *inputs; left > 0; --left) {
    std::string bytes(random() % 300, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    std::ofstream(failing, std::ios::binary) << bytes;
    run(bytes);
  }
  if (*inputs > 0) std::filesystem::remove(failing);
}
