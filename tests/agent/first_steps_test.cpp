// The commands that the documents show are run as they stand there, block by block.
#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <regex>
#include <sstream>

#include "support/served.h"

namespace Agent::FirstStepsTest {
namespace {

using Test::Api;
using Test::await;
using Test::Served;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

using Commands = std::vector<std::string>;

constexpr char kListens[] = "127.0.0.1:7400";

std::string sourceFile(std::string const& name) {
  return readFile(std::filesystem::path(ENROLIX_EXAMPLES) / ".." / name);
}

/// The commands of every shell block of a document; one that goes on in the next line is one command.
std::vector<Commands> blocksOf(std::string const& document) {
  std::vector<Commands> blocks;
  std::istringstream lines(document);
  bool isInside = false;
  bool goesOn = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "```sh") {
      isInside = true;
      blocks.emplace_back();
    } else if (line == "```") {
      isInside = false;
    } else if (isInside && !line.empty()) {
      if (goesOn)
        blocks.back().back() += "\n" + line;
      else
        blocks.back().push_back(line);
      goesOn = line.ends_with('\\');
    }
  }
  return blocks;
}

/// What builds and installs is tried elsewhere, and may change the machine.
bool isLeftOut(std::string const& command) { return command.starts_with("script/") || command.starts_with("cmake "); }

/// Whether a command goes on until it is interrupted.
bool isEndless(std::string const& command) {
  static std::regex const follows("enrolix (watch|fleet|switches --watch)");
  static std::regex const ends("--once|--duration");
  return std::regex_search(command, follows) && !std::regex_search(command, ends);
}

/// The options of a command that serves.
std::optional<std::string> servingOptions(std::string const& command) {
  static std::regex const serves("(?:\\S*/)?enrolix serve(.*)");
  std::smatch match;
  if (!std::regex_match(command, match, serves)) return std::nullopt;
  return match[1].str();
}

/// A place where the program and the examples are where the documents take them to be.
class Place {
 public:
  Place() {
    auto const program = std::filesystem::path(ENROLIX_PROGRAM).parent_path();
    std::filesystem::create_directories(folder_ / "build/release");
    std::filesystem::create_directory_symlink(program, folder_ / "build/release/bin");
    std::filesystem::create_directory_symlink(ENROLIX_EXAMPLES, folder_ / "examples");
  }

  /// Runs what stands in one block, as it would be pasted, except for what is left out. What serves must stand alone,
  /// and goes on serving; returns what the others print.
  std::string run(Commands const& commands) {
    static std::regex const inBackground("[^&>]&\\s*(#.*)?$");
    std::string script;
    for (std::string const& command : commands) {
      if (isLeftOut(command)) continue;
      EXPECT_FALSE(isEndless(command)) << command;
      EXPECT_FALSE(std::regex_search(command, inBackground)) << command;
      if (auto const options = servingOptions(command)) {
        EXPECT_EQ(commands.size(), 1u) << command << " hangs what follows";
        EXPECT_FALSE(served_) << "a second service on the same port";
        EXPECT_EQ(*options, "");
        // Shorter than usual, so that what lives on its own is soon told from what does not.
        served_.emplace(Served::Options{"--state", folder_ / "state.db", "--heartbeat-ttl", "0.5"});
        return "";
      }
      script += command + "\n";
    }
    return script.empty() ? "" : runScript(script);
  }

  Served const& served() const { return *served_; }

 private:
  std::string runScript(std::string script) {
    if (served_) {
      for (std::size_t at = script.find(kListens); at != std::string::npos; at = script.find(kListens, at))
        script.replace(at, sizeof kListens - 1, served_->url().substr(7));
    }
    std::string const server = served_ ? served_->url() : "http://127.0.0.1:1";
    folder_.write("block", script);
    std::string const command = "cd '" + (folder_ / "") +
                                "' && PATH=\"$PWD/build/release/bin:$PATH\" ENROLIX_SERVER=" + server +
                                " timeout 60 bash -e block >out 2>err </dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << script << folder_.read("err");
    return folder_.read("out");
  }

  Folder folder_;
  std::optional<Served> served_;
};

std::vector<std::string> readySwitches(Api& api) {
  std::vector<std::string> ready;
  for (auto const& [path, row] : api.documents("controller/switch/")) ready.push_back(path);
  return ready;
}

TEST(FirstSteps, OfTheReadMeAreDoneAndTheNetworkStaysReady) {
  Place place;
  std::size_t commands = 0;
  for (Commands const& block : blocksOf(sourceFile("README.md"))) {
    place.run(block);
    commands += block.size();
  }
  EXPECT_GT(commands, 10u);
  Api api(place.served());
  // When whatever lives as long as is usual has gone, the network is still there.
  ASSERT_EQ(api.put("heartbeat/02:00:00:00:00:99", "{}").status, 200);
  await([&] { return api.text("heartbeat/02:00:00:00:00:99") == "nothing"; });
  std::vector<std::string> expected;
  Json const tree = Json::parse(sourceFile("examples/network.tree.json"));
  for (auto const& [path, document] : tree.items())
    if (path.starts_with("controller/switch/")) expected.push_back(path);
  EXPECT_GT(expected.size(), 5u);
  EXPECT_THAT(readySwitches(api), IsSupersetOf(expected));
}

TEST(FirstSteps, OfTheServiceEndInAnAnswerWithTheIdentityOfTheController) {
  Place place;
  std::string answer;
  for (Commands const& block : blocksOf(sourceFile("docs/serving.md"))) {
    answer = place.run(block);
    EXPECT_THAT(answer, Not(HasSubstr("\"error\""))) << block.front();
  }
  std::string const last = answer.substr(answer.rfind('\n', answer.size() - 2) + 1);
  Json const status = Json::parse(last, nullptr, false);
  ASSERT_TRUE(status.is_object()) << answer;
  std::string const identity = Json::parse(Api(place.served()).text("controller/status"))["controllerUUID"];
  EXPECT_FALSE(identity.empty());
  EXPECT_EQ(status["controllerUUID"], identity);
  EXPECT_EQ(status["registrationGenId"], 1);
}

}  // namespace
}  // namespace Agent::FirstStepsTest
