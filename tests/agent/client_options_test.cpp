// What the command lines of the client commands ask for, and what wrong ones are told.
#include "agent/client/client_options.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "agent/program/options.h"

namespace Agent::ClientOptionsTest {
namespace {

using Arguments = std::vector<std::string>;
using std::chrono::milliseconds;

template <class Command>
Command parse(Arguments const& arguments) {
  Options const options = parseOptions(arguments, "1");
  if (auto const* answer = std::get_if<Answer>(&options)) ADD_FAILURE() << answer->text;
  auto const* client = std::get_if<ClientOptions>(&options);
  auto const* command = client ? std::get_if<Command>(client) : nullptr;
  EXPECT_NE(command, nullptr) << arguments[0];
  return command ? *command : Command();
}

Answer answer(Arguments const& arguments) {
  Options const options = parseOptions(arguments, "1");
  auto const* result = std::get_if<Answer>(&options);
  return result ? *result : Answer{"accepted", -1};
}

/// A variable of the environment for as long as this lives.
class Variable {
 public:
  Variable(char const* name, char const* value) : name_(name) { setenv(name, value, 1); }
  ~Variable() { unsetenv(name_); }
  Variable(Variable const&) = delete;
  Variable& operator=(Variable const&) = delete;

 private:
  char const* name_;
};

TEST(ClientOptions, HaveTheirDefaults) {
  auto const get = parse<GetOptions>({"get", "controller/config"});
  EXPECT_EQ(get.path, "controller/config");
  EXPECT_EQ(get.common.server, "http://127.0.0.1:7400");
  EXPECT_EQ(get.common.format, OutputFormat::kTable);
  EXPECT_EQ(get.common.colour, ColourChoice::kAuto);
  EXPECT_EQ(get.common.patience, milliseconds(30'000));
  EXPECT_FALSE(get.ifMatch);
  EXPECT_EQ(parse<PutOptions>({"put", "p"}).file, "-");
  EXPECT_EQ(parse<DumpOptions>({"dump"}).prefix, "");
  auto const watch = parse<WatchOptions>({"watch"});
  EXPECT_TRUE(watch.prefix.empty() && !watch.after && !watch.isOnce);
  auto const fleet = parse<FleetOptions>({"fleet"});
  EXPECT_EQ(fleet.switches, 8u);
  EXPECT_EQ(fleet.interval, milliseconds(5000));
  EXPECT_FALSE(fleet.duration || fleet.isOnce || fleet.isLeaving);
}

TEST(ClientOptions, EveryCommandTakesTheCommonOptions) {
  for (Arguments const& command : {Arguments{"get", "p"},
                                   {"put", "p"},
                                   {"delete", "p"},
                                   {"watch"},
                                   {"apply", "f"},
                                   {"dump"},
                                   {"switches"},
                                   {"fleet"}}) {
    Arguments arguments = command;
    for (char const* more : {"--server", "http://s:1", "-o", "json", "--color", "always", "--timeout", "1.5"})
      arguments.emplace_back(more);
    Options const options = parseOptions(arguments, "1");
    ASSERT_TRUE(std::holds_alternative<ClientOptions>(options)) << command[0];
    ClientCommonOptions const common =
        std::visit([](auto const& chosen) { return chosen.common; }, std::get<ClientOptions>(options));
    EXPECT_EQ(common.server, "http://s:1") << command[0];
    EXPECT_EQ(common.format, OutputFormat::kJson) << command[0];
    EXPECT_EQ(common.colour, ColourChoice::kAlways) << command[0];
    EXPECT_EQ(common.patience, milliseconds(1500)) << command[0];
  }
}

TEST(ClientOptions, TheServerOfTheEnvironmentGivesWayToThatOfTheCommandLine) {
  Variable const server("ENROLIX_SERVER", "http://environment:1");
  EXPECT_EQ(parse<GetOptions>({"get", "p"}).common.server, "http://environment:1");
  EXPECT_EQ(parse<GetOptions>({"get", "p", "--server", "http://line:2"}).common.server, "http://line:2");
  // Whatever is wrong with it, other commands do not mind.
  Variable const none("ENROLIX_SERVER", "");
  EXPECT_EQ(parse<GetOptions>({"get", "p"}).common.server, "http://127.0.0.1:7400");
  EXPECT_TRUE(std::holds_alternative<RingOptions>(parseOptions({"ring", "f"}, "1")));
}

TEST(ClientOptions, EveryCommandTakesItsOwn) {
  auto const put = parse<PutOptions>({"put", "p", "f", "--ttl", "0.5", "--if-match", "12"});
  EXPECT_EQ(put.file, "f");
  EXPECT_EQ(put.timeToLive, "0.5");
  EXPECT_EQ(put.ifMatch, 12u);
  EXPECT_EQ(parse<PutOptions>({"put", "p", "--value", "{}"}).value, "{}");
  EXPECT_EQ(parse<DeleteOptions>({"delete", "p", "--if-match=0"}).ifMatch, 0u);
  EXPECT_EQ(parse<GetOptions>({"get", "p", "--if-match=18446744073709551615"}).ifMatch, ~0ull);
  auto const watch = parse<WatchOptions>({"watch", "registration/", "--after", "3"});
  EXPECT_EQ(watch.prefix, "registration/");
  EXPECT_EQ(watch.after, "3");
  EXPECT_EQ(parse<WatchOptions>({"watch", "--once"}).after, "0");
  auto const apply = parse<ApplyOptions>({"apply", "a", "-", "--atomic", "--ttl", "0", "--if-match", "4"});
  EXPECT_EQ(apply.files, (Arguments{"a", "-"}));
  EXPECT_TRUE(apply.isAtomic);
  EXPECT_FALSE(apply.isTree);
  EXPECT_TRUE(parse<ApplyOptions>({"apply", "--tree", "a"}).isTree);
  EXPECT_EQ(apply.timeToLive, "0");
  EXPECT_EQ(apply.ifMatch, 4u);
  EXPECT_TRUE(parse<SwitchesOptions>({"switches", "--watch"}).isWatched);
  auto const fleet = parse<FleetOptions>({"fleet",
                                          "--switches",
                                          "3",
                                          "--prefix",
                                          "x",
                                          "--interval",
                                          "0.25",
                                          "--duration",
                                          "2",
                                          "--once",
                                          "--leave",
                                          "--seed",
                                          "9"});
  EXPECT_EQ(fleet.switches, 3u);
  EXPECT_EQ(fleet.prefix, "x");
  EXPECT_EQ(fleet.interval, milliseconds(250));
  EXPECT_EQ(fleet.duration, milliseconds(2000));
  EXPECT_TRUE(fleet.isOnce && fleet.isLeaving);
  EXPECT_EQ(fleet.seed, 9u);
}

TEST(ClientOptions, AWrongCommandLineIsToldWhatIsWrong) {
  struct {
    Arguments arguments;
    std::string text;
  } const cases[] = {
      {{"get"}, "PATH"},
      {{"get", ""}, "empty path"},
      {{"get", "a", "b"}, "b"},
      {{"get", "p", "--server", ""}, "empty server"},
      {{"get", "p", "-o", "yaml"}, "yaml"},
      {{"get", "p", "--color", "blue"}, "blue"},
      {{"get", "p", "--timeout", "0"}, "more than no time"},
      {{"get", "p", "--timeout", "soon"}, "expected seconds"},
      {{"get", "p", "--if-match", "-1"}, "--if-match"},
      {{"get", "p", "--if-match", "x"}, "--if-match"},
      {{"put", "p", "f", "--value", "1"}, "--value"},
      {{"put", "p", "--ttl", "-1"}, "--ttl"},
      {{"put", "p", "--ttl", "1.2345"}, "expected seconds"},
      {{"put", "p", "--ttl", "1e3"}, "expected seconds"},
      {{"watch", "--after", "soon"}, "--after"},
      {{"apply"}, "FILE"},
      {{"apply", ""}, "empty file name"},
      {{"apply", "-", "-"}, "standard input can be read only once"},
      {{"dump", "--if-match", "1"}, "--if-match"},
      {{"fleet", "--switches", "0"}, "--switches"},
      {{"fleet", "--interval", "0.000"}, "--interval"},
  };
  for (auto const& [arguments, text] : cases) {
    Answer const wrong = answer(arguments);
    EXPECT_EQ(wrong.exitStatus, 2) << wrong.text;
    EXPECT_NE(wrong.text.find(text), std::string::npos) << "wanted " << text << " in " << wrong.text;
  }
}

}  // namespace
}  // namespace Agent::ClientOptionsTest
