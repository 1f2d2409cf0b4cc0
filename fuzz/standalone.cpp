// Runs a fuzz target on COUNT random inputs, without libFuzzer: in every test run.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int, char** arguments) {
  const unsigned long given = arguments[2] ? std::strtoul(arguments[2], nullptr, 10) : 0;
  const auto seed = static_cast<unsigned>(given > 0 ? given : std::random_device{}());
  std::printf("standalone COUNT [SEED]: seed %u\n", seed);
  std::mt19937 random(seed);
  for (long count = std::strtol(arguments[1], nullptr, 10); count > 0; --count) {
    std::vector<std::uint8_t> bytes(random() % 300);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
}
