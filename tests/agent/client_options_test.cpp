// What the command lines of the client commands ask for, and what wrong ones are told.
#include "agent/program/client_options.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "agent/program/ring_command.h"
#include "support/parsed.h"

namespace Agent::ClientOptionsTest {
namespace {

using Arguments = std::vector<std::string>;
using std::chrono::milliseconds;

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
  auto const get = parsed<GetOptions>({"get", "controller/config"});
  EXPECT_EQ(get.path, "controller/config");
  EXPECT_EQ(get.common.server, "http://127.0.0.1:7400");
  EXPECT_EQ(get.common.format, OutputFormat::kTable);
  EXPECT_EQ(get.common.colour, ColourChoice::kAuto);
  EXPECT_EQ(get.common.patience, milliseconds(30'000));
  EXPECT_FALSE(get.ifMatch);
  EXPECT_EQ(parsed<PutOptions>({"put", "p"}).file, "-");
  EXPECT_EQ(parsed<DumpOptions>({"dump"}).prefix, "");
  auto const watch = parsed<WatchOptions>({"watch"});
  EXPECT_TRUE(watch.prefix.empty() && !watch.after && !watch.isOnce);
  auto const fleet = parsed<FleetOptions>({"fleet"});
  EXPECT_EQ(fleet.switches, 8u);
  EXPECT_EQ(fleet.interval, milliseconds(5000));
  EXPECT_FALSE(fleet.duration || fleet.isOnce || fleet.isLeaving);
}

template <class Options>
void expectCommonOptions(Arguments arguments) {
  for (char const* more : {"--server", "http://s:1", "-o", "json", "--color", "always", "--timeout", "1.5"})
    arguments.emplace_back(more);
  ClientCommonOptions const common = parsed<Options>(arguments).common;
  EXPECT_EQ(common.server, "http://s:1") << arguments[0];
  EXPECT_EQ(common.format, OutputFormat::kJson) << arguments[0];
  EXPECT_EQ(common.colour, ColourChoice::kAlways) << arguments[0];
  EXPECT_EQ(common.patience, milliseconds(1500)) << arguments[0];
}

TEST(ClientOptions, EveryCommandTakesTheCommonOptions) {
  expectCommonOptions<GetOptions>({"get", "p"});
  expectCommonOptions<PutOptions>({"put", "p"});
  expectCommonOptions<DeleteOptions>({"delete", "p"});
  expectCommonOptions<WatchOptions>({"watch"});
  expectCommonOptions<ApplyOptions>({"apply", "f"});
  expectCommonOptions<DumpOptions>({"dump"});
  expectCommonOptions<BackupOptions>({"backup", "f"});
  expectCommonOptions<SwitchesOptions>({"switches"});
  expectCommonOptions<FleetOptions>({"fleet"});
}

TEST(ClientOptions, TheServerOfTheEnvironmentGivesWayToThatOfTheCommandLine) {
  Variable const server("ENROLIX_SERVER", "http://environment:1");
  EXPECT_EQ(parsed<GetOptions>({"get", "p"}).common.server, "http://environment:1");
  EXPECT_EQ(parsed<GetOptions>({"get", "p", "--server", "http://line:2"}).common.server, "http://line:2");
  // Whatever is wrong with it, other commands do not mind.
  Variable const none("ENROLIX_SERVER", "");
  EXPECT_EQ(parsed<GetOptions>({"get", "p"}).common.server, "http://127.0.0.1:7400");
  EXPECT_EQ(parsed<RingOptions>({"ring", "f"}).file, "f");
}

TEST(ClientOptions, EveryCommandTakesItsOwn) {
  auto const put = parsed<PutOptions>({"put", "p", "f", "--ttl", "0.5", "--if-match", "12"});
  EXPECT_EQ(put.file, "f");
  EXPECT_EQ(put.timeToLive, "0.5");
  EXPECT_EQ(put.ifMatch, 12u);
  EXPECT_EQ(parsed<PutOptions>({"put", "p", "--value", "{}"}).value, "{}");
  EXPECT_EQ(parsed<DeleteOptions>({"delete", "p", "--if-match=0"}).ifMatch, 0u);
  EXPECT_EQ(parsed<GetOptions>({"get", "p", "--if-match=18446744073709551615"}).ifMatch, ~0ull);
  auto const watch = parsed<WatchOptions>({"watch", "registration/", "--after", "3"});
  EXPECT_EQ(watch.prefix, "registration/");
  EXPECT_EQ(watch.after, "3");
  EXPECT_TRUE(parsed<WatchOptions>({"watch", "--once"}).isOnce);
  auto const apply = parsed<ApplyOptions>({"apply", "a", "-", "--atomic", "--ttl", "0", "--if-match", "4"});
  EXPECT_EQ(apply.files, (Arguments{"a", "-"}));
  EXPECT_TRUE(apply.isAtomic);
  EXPECT_FALSE(apply.isTree);
  EXPECT_TRUE(parsed<ApplyOptions>({"apply", "--tree", "a"}).isTree);
  EXPECT_EQ(apply.timeToLive, "0");
  EXPECT_EQ(apply.ifMatch, 4u);
  EXPECT_TRUE(parsed<SwitchesOptions>({"switches", "--watch"}).isWatched);
  auto const fleet = parsed<FleetOptions>({"fleet",
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
    Answer const wrong = answered(arguments);
    EXPECT_EQ(wrong.exitStatus, 2) << wrong.text;
    EXPECT_NE(wrong.text.find(text), std::string::npos) << "wanted " << text << " in " << wrong.text;
  }
}

}  // namespace
}  // namespace Agent::ClientOptionsTest
