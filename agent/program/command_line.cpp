// Describes commands and options to the parser, and takes the results out of it.
#include "agent/program/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <type_traits>

#include "agent/program/exit_code.h"

namespace Agent {
namespace {

// The parser prints to the streams; the texts are wanted.
Answer toAnswer(CLI::App const& app, CLI::Error const& error) {
  std::ostringstream out;
  std::ostringstream problem;
  if (app.exit(error, out, problem) == 0) return {out.str(), 0};
  return {"enrolix: " + problem.str(), static_cast<int>(ExitCode::kWrongCommandLine)};
}

/// What is wrong with a value is told with the name of its option.
auto naming(std::string const& name, std::function<void(std::string const& text)> const& take) {
  return [name = name.substr(name.rfind(',') + 1), take](std::string const& text) {
    try {
      take(text);
    } catch (WrongValue const& problem) {
      throw CLI::ValidationError(name, problem.what());
    }
  };
}

CLI::Validator validator(CommandLine::Check check) {
  return {[check](std::string& text) { return check(text); }, ""};
}

}  // namespace

CLI::Option* CommandLine::flag(std::string const& name, bool& to, std::string const& description) {
  return command_.add_flag(name, to, description);
}

CLI::Option* CommandLine::option(std::string const& form, Target const& to, std::string const& description,
                                 Check check) {
  std::size_t const end = std::min(form.find(' '), form.size());
  std::string const name = form.substr(0, end);
  auto const add = [&](auto const& target) {
    if constexpr (std::is_pointer_v<std::decay_t<decltype(target)>>)
      return command_.add_option(name, *target, description);
    else
      return command_.add_option_function<std::string>(name, naming(name, target), description);
  };
  CLI::Option* const option = std::visit(add, to)->type_name(form.substr(std::min(end + 1, form.size())));
  if (check != nullptr) option->check(validator(check));
  return option;
}

void CommandLine::count(std::string const& form, std::uint64_t& to, std::uint64_t most,
                        std::string const& description) {
  option(form, &to, description)->check(CLI::Range(std::uint64_t{1}, most).description(""));
}

void CommandLine::list(std::string const& form, std::vector<std::string>& to, std::string const& description,
                       Check check) {
  std::size_t const end = form.find(' ');
  CLI::Option* const option = command_.add_option(form.substr(0, end), to, description);
  option->type_name(form.substr(end + 1))->allow_extra_args(false)->check(validator(check));
}

void CommandLine::files(std::string const& name, std::vector<std::string>& to, std::string const& description) {
  auto const take = [name, &to](std::vector<std::string> const& files) {
    if (std::count(files.begin(), files.end(), "-") > 1)
      throw CLI::ValidationError(name, "standard input can be read only once");
    to = files;
  };
  CLI::Option* const option = command_.add_option_function<std::vector<std::string>>(name, take, description);
  option->type_name("")->required()->check(validator(fileProblem));
}

void CommandLine::require(CLI::Option* option) { option->required(); }
void CommandLine::exclude(CLI::Option* one, CLI::Option* other) { one->excludes(other); }
void CommandLine::variable(CLI::Option* option, std::string const& name) { option->envname(name); }

std::string fileProblem(std::string const& text) { return text.empty() ? "empty file name" : ""; }

// The parser would take -1 for the largest number.
std::string numberProblem(std::string const& text) {
  bool const isDigits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  return isDigits ? "" : "expected a number, found " + inQuotes(text);
}

std::variant<ChosenCommand, Answer> parseCommandLine(std::span<Command const> commands,
                                                     std::vector<std::string> arguments, std::string const& version) {
  CLI::App app("The switch registry of a network controller", "enrolix");
  app.set_version_flag("--version", "enrolix " + version, "Print the version and leave");
  app.set_help_flag("-h,--help", "Print this help and leave");
  app.require_subcommand(0, 1);
  // The parser writes to them: they stay where they are.
  std::vector<std::any> options(commands.size());
  for (std::size_t i = 0; i < commands.size(); ++i) {
    CommandLine line(*app.add_subcommand(std::string(commands[i].name), std::string(commands[i].description)));
    commands[i].describe(line, options[i]);
  }
  try {
    // The parser takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    for (std::size_t i = 0; i < commands.size(); ++i)
      if (app.got_subcommand(std::string(commands[i].name))) return ChosenCommand{&commands[i], std::move(options[i])};
    throw CLI::RequiredError("A command, serve or watch for instance,");
  } catch (CLI::Error const& error) {
    return toAnswer(app, error);
  }
}

}  // namespace Agent
