// Attacks `enrolix serve` in every way of the table, while honest clients ask it for what they need.
#include <sys/resource.h>

#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "agent/document/number.h"
#include "tests/attack/trial.h"

namespace Attack {
namespace {

constexpr char kUsage[] =
    "usage: enrolix_attack FOLDER [--attack NAME] [--seconds NUMBER] [--switches COUNT] [--seed NUMBER] [--small]\n"
    "  [--strict] [--list]\n"
    "The state goes below FOLDER, and should be on a disk. --strict fails where a bar is missed; --small is the short\n"
    "form, for a test. A cell has the count of answers, and the times of 50 %, 99 %, 99.9 % and all, in ms.\n";

constexpr std::size_t kSmallNetwork = 50;
constexpr double kSmallTime = 0.3;

/// Both this program and the server need a descriptor for each connection.
void raiseOpenFiles() {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
}

void printRow(std::string const& first, std::vector<std::string> const& cells) {
  std::cout << "| " << first;
  for (std::string const& cell : cells) std::cout << " | " << cell;
  std::cout << " |" << std::endl;
}

int attack(std::string const& name, TrialOptions const& options, bool isStrict) {
  std::cout << "seed " << options.seed << ", " << options.switches << " switches, " << options.seconds
            << " s for each attack\n\n";
  printRow("attack", columns());
  printRow("---", std::vector<std::string>(columns().size(), "---"));
  bool isFound = false;
  bool isFailed = false;
  for (Plan const& plan : plans()) {
    if (!name.empty() && plan.name != name) continue;
    isFound = true;
    Result const result = run(plan, options);
    printRow(std::string(plan.name), result.cells);
    for (std::string const& failure : result.failures) std::cerr << plan.name << ": " << failure << '\n';
    if (isStrict)
      for (std::string const& missed : result.missed) std::cerr << plan.name << ": missed: " << missed << '\n';
    isFailed |= !result.failures.empty() || (isStrict && !result.missed.empty());
  }
  if (!isFound) std::cerr << "enrolix_attack: there is no attack " << name << '\n';
  return isFailed || !isFound ? 1 : 0;
}

int attackAs(std::vector<std::string> const& arguments) {
  TrialOptions options;
  std::string name;
  bool isStrict = false;
  bool isUnderstood = !arguments.empty();
  std::size_t seconds = 0;
  std::map<std::string, std::function<void()>> const flags{{"--small",
                                                            [&] {
                                                              options.isSmall = true;
                                                              options.switches = kSmallNetwork;
                                                              options.seconds = kSmallTime;
                                                            }},
                                                           {"--strict", [&] { isStrict = true; }}};
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    std::string const& argument = arguments[i];
    std::string const value = i + 1 < arguments.size() ? arguments[i + 1] : "";
    if (argument == "--list") {
      for (Plan const& plan : plans()) std::cout << "| " << plan.name << " | " << plan.sends << " |\n";
      return 0;
    }
    if (auto const flag = flags.find(argument); flag != flags.end()) {
      flag->second();
    } else if (!argument.starts_with("--")) {
      isUnderstood &= options.folder.empty();
      options.folder = argument;
    } else if (argument == "--attack") {
      name = arguments[++i % arguments.size()];
    } else {
      isUnderstood &= argument == "--seconds"    ? Agent::readNumber(value, seconds)
                      : argument == "--switches" ? Agent::readNumber(value, options.switches)
                                                 : argument == "--seed" && Agent::readNumber(value, options.seed);
      ++i;
    }
  }
  if (seconds > 0) options.seconds = static_cast<double>(seconds);
  if (!isUnderstood || options.folder.empty() || options.switches == 0) {
    std::cerr << kUsage;
    return 2;
  }
  raiseOpenFiles();
  return attack(name, options, isStrict);
}

}  // namespace
}  // namespace Attack

int main(int argc, char** argv) {
  try {
    return Attack::attackAs({argv + 1, argv + argc});
  } catch (std::exception const& error) {
    std::cerr << "enrolix_attack: " << error.what() << '\n';
    return 1;
  }
}
