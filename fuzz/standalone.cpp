// Runs a fuzz target without libFuzzer: on COUNT random inputs, and on files.

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments) {
  const auto run = [](const std::string& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  };
  for (int at = 2; at < count; ++at) {
    std::ifstream file(arguments[at], std::ios::binary);
    run({std::istreambuf_iterator<char>(file), {}});
  }
  const unsigned seed = std::random_device{}();
  std::cout << "seed " << seed << std::endl;
  std::mt19937 random(seed);
  for (int left = std::atoi(arguments[1]); left > 0; --left) {
    std::string bytes(random() % 300, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    run(bytes);
  }
}
