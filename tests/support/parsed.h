// Command lines as the program takes them.
#pragma once

#include <gtest/gtest.h>

#include <any>
#include <string>
#include <variant>
#include <vector>

#include "agent/program/commands.h"

namespace Agent {

/// The options of the command that a command line asks for; a failure of the test if it asks for none with such
/// options.
template <class Options>
Options parsed(std::vector<std::string> const& arguments) {
  auto const result = parseCommandLine(commands(), arguments, "1.2.3");
  if (auto const* answer = std::get_if<Answer>(&result)) ADD_FAILURE() << answer->text;
  auto const* chosen = std::get_if<ChosenCommand>(&result);
  auto const* options = chosen != nullptr ? std::any_cast<Options>(&chosen->options) : nullptr;
  EXPECT_NE(options, nullptr) << arguments[0];
  return options != nullptr ? *options : Options();
}

/// What a command line is answered at once.
inline Answer answered(std::vector<std::string> const& arguments) {
  auto const result = parseCommandLine(commands(), arguments, "1.2.3");
  auto const* answer = std::get_if<Answer>(&result);
  return answer != nullptr ? *answer : Answer{"accepted", -1};
}

}  // namespace Agent
