// The table of commands, against the help and the documents.
#include "agent/program/commands.h"

#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "support/documents.h"
#include "support/parsed.h"

namespace Agent::CommandsTest {
namespace {

using testing::Contains;
using testing::HasSubstr;

/// "--name VALUE", or "--name" alone.
using OptionTexts = std::set<std::string>;
/// By usage without options: "enrolix put PATH [FILE]".
using Usages = std::map<std::string, OptionTexts>;

std::string helpOf(std::string const& command) { return answered({command, "--help"}).text; }

/// The options of a command, as its help has them.
OptionTexts optionsOf(std::string const& command) {
  static std::regex const option("^  (?:-[a-z],)?(--[a-z-]+)(?: ([A-Z][A-Z:]*|[a-z|]+))?(?: .*)?$");
  OptionTexts options;
  std::istringstream lines(helpOf(command));
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (!std::regex_match(line, match, option) || match[1] == "--help") continue;
    options.insert(match[1].str() + (match[2].length() > 0 ? " " + match[2].str() : ""));
  }
  return options;
}

/// What the help says of all commands.
Usages told() {
  Usages usages;
  for (Command const& command : commands()) {
    std::smatch match;
    std::string const help = helpOf(std::string(command.name));
    std::regex_search(help, match, std::regex("Usage: (.*) \\[OPTIONS\\](.*)"));
    std::string const usage = match[1].str() + match[2].str();
    usages[std::regex_replace(usage, std::regex("\\.\\.\\."), "…")] = optionsOf(std::string(command.name));
  }
  return usages;
}

OptionTexts optionsIn(std::string const& text) {
  static std::regex const option("--[a-z-]+( [A-Z][A-Z:]*| [a-z]+(\\|[a-z]+)+)?");
  OptionTexts options;
  for (std::sregex_iterator at(text.begin(), text.end(), option), end; at != end; ++at) options.insert(at->str());
  return options;
}

/// Notes a usage such as "enrolix restore FILE --state FILE", with the options in it and those in `more`.
void note(std::string const& usage, std::string const& more, Usages& usages) {
  static std::regex const option(" \\[?--[a-z-]+( [A-Z]+)?\\]?");
  EXPECT_TRUE(usages.emplace(std::regex_replace(usage, option, ""), optionsIn(usage + " " + more)).second) << usage;
}

std::string textOf(std::vector<TableRow> const& rows, bool isFirstCellAlone) {
  std::string text;
  for (TableRow const& row : rows)
    for (std::size_t i = 0; i < (isFirstCellAlone ? 1 : row.size()); ++i) text += row[i] + " ";
  return text;
}

/// What the documents say of all commands.
Usages documented() {
  Usages usages;
  std::string const serving = documentNamed("docs/serving.md");
  std::string const stateTree = documentNamed("docs/state-tree.md");
  note("enrolix serve",
       textOf(tableRows(serving, "## Starting and stopping"), true) + textOf(tableRows(serving, "## Limits"), true),
       usages);
  std::size_t const common = serving.find("All take `--server");
  std::string const allTake = serving.substr(common, serving.find("\n\n", common) - common);
  for (auto const& [heading, more] :
       {std::pair("## The commands of the client", allTake), std::pair("### Commands on state files", std::string())}) {
    for (TableRow const& row : tableRows(serving, heading))
      note(row[0].substr(1, row[0].size() - 2), textOf({row}, false) + more, usages);
  }
  static std::regex const block("```console\n(enrolix [a-z]+.*)\n```");
  for (std::sregex_iterator at(stateTree.begin(), stateTree.end(), block), end; at != end; ++at)
    note((*at)[1], "", usages);
  return usages;
}

TEST(Commands, AndTheirOptionsAreThoseOfTheDocuments) {
  Usages const expected = told();
  Usages const found = documented();
  EXPECT_EQ(expected.size(), commands().size());
  for (auto const& [usage, options] : expected) {
    ASSERT_TRUE(found.contains(usage)) << usage << " is in no document";
    EXPECT_EQ(found.at(usage), options) << usage;
  }
  for (auto const& [usage, options] : found) EXPECT_TRUE(expected.contains(usage)) << usage << " is no command";
  EXPECT_EQ(optionsIn(textOf(tableRows(documentNamed("docs/state-tree.md"), "### `enrolix replay`"), true)),
            optionsOf("replay"));
}

TEST(Commands, AreListedInTheHelp) {
  std::string const help = answered({"--help"}).text;
  std::size_t last = 0;
  for (Command const& command : commands()) {
    std::string line = "\n  " + std::string(command.name);
    line.append(31 - line.size(), ' ').append(command.description).append("\n");
    std::size_t const at = help.find(line);
    ASSERT_NE(at, std::string::npos) << line;
    EXPECT_GT(at, last) << line;
    last = at;
    EXPECT_THAT(helpOf(std::string(command.name)), HasSubstr(std::string(command.description) + "\n"));
  }
}

TEST(Commands, InTheDocumentsAreWrittenWithOptionsThatTheyHave) {
  static std::regex const use("(?:^|`|bin/)enrolix ([a-z]+)([^`#>|]*)");
  std::size_t uses = 0;
  for (char const* document : {"README.md", "docs/serving.md", "docs/state-tree.md", "docs/embedding.md"}) {
    std::istringstream lines(documentNamed(document));
    for (std::string line; std::getline(lines, line);) {
      for (std::sregex_iterator at(line.begin(), line.end(), use), end; at != end; ++at, ++uses) {
        std::string const help = answered({(*at)[1], "--help"}).text;
        ASSERT_THAT(help, HasSubstr("Usage: enrolix " + (*at)[1].str())) << document << ": " << line;
        std::set<std::string> names;
        for (std::string const& option : optionsOf((*at)[1])) names.insert(option.substr(0, option.find(' ')));
        for (std::string const& option : optionsIn((*at)[2]))
          EXPECT_THAT(names, Contains(option.substr(0, option.find(' ')))) << document << ": " << line;
      }
    }
  }
  EXPECT_GT(uses, 30u);
}

}  // namespace
}  // namespace Agent::CommandsTest
