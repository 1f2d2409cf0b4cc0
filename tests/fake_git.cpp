// What stands for git where the program's test says what git does: the words of the variable GIT,
// command by command.
//
//   say VALUE     of core.excludesFile            close           the output
//   tell NAME...  variables' values as that one    sleep SECONDS
//   exit STATUS                                   touch FILE
//   die           as by a crash                   local COMMAND   unless "--global" is asked

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

int main(int argc, char** argv) {
  const auto value = [](const std::string& name) {
    const char* const found = std::getenv(name.c_str());
    return std::string(found == nullptr ? "" : found);
  };
  const bool is_global = std::find(argv, argv + argc, std::string_view("--global")) != argv + argc;
  std::istringstream commands(value("GIT"));
  for (std::string command; std::getline(commands, command, ';');) {
    std::istringstream words(command);
    std::string what;
    std::string argument;
    words >> what;
    if (what == "local") {
      if (is_global) continue;
      words >> what;
    }
    for (std::string word; words >> word;) argument += what == "tell" ? value(word) : word;
    if (what == "say" || what == "tell") {
      std::printf("core.excludesfile\n%s%c", argument.c_str(), '\0');
    }
    if (what == "close") std::fclose(stdout);
    if (what == "sleep") std::this_thread::sleep_for(std::chrono::seconds(std::stoi(argument)));
    if (what == "touch") std::ofstream file(argument);
    if (what == "exit") return std::stoi(argument);
    if (what != "die") continue;
    std::fflush(stdout);
    std::abort();
  }
}
