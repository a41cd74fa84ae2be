// The command line: how commands describe their options, and what was asked for. The parser under it is seen in the
// source alone.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "agent/document/input_error.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Agent {

/// Says in what() what is wrong with the value of an option; thrown by what takes it.
class WrongValue : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The options of one command, which are described one by one as the help writes them: "--ring FILE", "--table", and
/// "PATH" for an argument. Where a value is to go must outlive the parsing.
class CommandLine {
 public:
  /// Returns what is wrong with a value; nothing if it is good.
  using Check = std::string (*)(std::string const& text);
  /// Where a value goes. A function may throw a WrongValue.
  using Target = std::variant<std::string*, std::optional<std::string>*, std::uint64_t*, std::optional<std::uint64_t>*,
                              std::function<void(std::string const& text)>>;

  explicit CommandLine(CLI::App& command) : command_(command) {}

  CLI::Option* flag(std::string const& name, bool& to, std::string const& description);
  CLI::Option* option(std::string const& form, Target const& to, std::string const& description, Check check = nullptr);
  /// A number from 1 to `most`.
  void count(std::string const& form, std::uint64_t& to, std::uint64_t most, std::string const& description);
  /// One of some names, each of which stands for a value.
  template <class Value>
  void choice(std::string const& name, Value& to, std::vector<std::pair<std::string, Value>> const& choices,
              std::string const& description) {
    std::string names;
    for (auto const& [text, value] : choices) names += (names.empty() ? "" : "|") + text;
    auto const choose = [&to, choices, names](std::string const& given) {
      for (auto const& [text, value] : choices)
        if (text == given) return void(to = value);
      throw WrongValue("expected " + names + ", found " + inQuotes(given));
    };
    option(name + " " + names, choose, description);
  }
  /// An option that may be given more than once.
  void list(std::string const& form, std::vector<std::string>& to, std::string const& description, Check check);
  /// Files to read, at least one; "-" is standard input, at most once.
  void files(std::string const& name, std::vector<std::string>& to, std::string const& description);

  /// The command line must have it.
  void require(CLI::Option* option);
  /// The command line has at most one of the two.
  void exclude(CLI::Option* one, CLI::Option* other);
  /// The environment has the value in this variable, if the command line has none.
  void variable(CLI::Option* option, std::string const& name);

 private:
  CLI::App& command_;
};

/// Checks: a name of a file is not empty; a number is digits alone.
std::string fileProblem(std::string const& text);
std::string numberProblem(std::string const& text);

/// A row of the table of commands.
struct Command {
  std::string_view name;
  std::string_view description;
  /// Puts the default options into `options`, and describes them to the parser.
  void (*describe)(CommandLine& line, std::any& options);
  /// Runs with these options, and returns the exit status. May throw an exception whose what() is one line.
  int (*run)(std::any const& options);
};

/// What a command line asks for: a command with its options.
struct ChosenCommand {
  Command const* command;
  std::any options;
};

/// A command line that is answered with a text alone: help and version go to standard output and leave with 0, a wrong
/// command line goes to standard error and leaves with 2.
struct Answer {
  std::string text;
  int exitStatus = 0;
};

/// `arguments` are those behind the program's name, `version` is what `--version` prints.
std::variant<ChosenCommand, Answer> parseCommandLine(std::span<Command const> commands,
                                                     std::vector<std::string> arguments, std::string const& version);

}  // namespace Agent
