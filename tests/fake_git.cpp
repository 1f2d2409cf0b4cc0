// What stands for git where the program's test says what git does: the words of the variable GIT,
// command by command.
//
//   say TEXT    prints it and a NUL      close         closes the output
//   tell NAME   prints that variable     sleep SECONDS
//   exit STATUS                          touch FILE
//   die         as by a crash            local COMMAND, unless "--global" is asked

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
    words >> argument;
    if (what == "say") std::fwrite(argument.c_str(), 1, argument.size() + 1, stdout);
    if (what == "tell") std::fputs(value(argument).c_str(), stdout);
    if (what == "args") {
      for (int index = 1; index < argc; ++index) std::printf("[%s]", argv[index]);
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
