// Input that is wrong in every way: one line of complaint each, nothing changed, and no scenario that does harm.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "agent/program/replay.h"
#include "framework/trace/trace.h"
#include "support/program.h"
#include "support/rounds.h"
#include "support/tree_world.h"

namespace Agent::BadInputTest {
namespace {

using Test::sampled;
using Test::sampledRounds;
using testing::StartsWith;

std::string repeated(std::string const& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

TEST(BadInput, GetsOneLineAndChangesNothing) {
  struct {
    std::string line;
    std::string start;
  } const cases[] = {
      {"put", "not valid JSON at byte 1"},
      {"[1, 2]", "expected {\"put\": PATH, \"value\": DOCUMENT}"},
      {R"({"put": "controller/config", "value": {"enabled": true})", "controller/config: not valid JSON"},
      {R"({"put": "controller/config"})", "controller/config: value: missing"},
      {R"({"put": "controller/config", "value": {}, "when": 1})", "controller/config: when: "},
      {R"({"put": "controller/config", "put": "controller/config", "value": {}})",
       "controller/config: put: the same field twice"},
      {R"({"put": "controller/switches", "value": {}})", "controller/switches: no such path"},
      {R"({"delete": "registration/a/config/enabled"})", "registration/a/config/enabled: no such path"},
      {R"({"put": "controller/config", "value": []})", "controller/config: value: expected an object, found an array"},
      {R"({"put": "controller/config", "value": {"enabled": "yes"}})",
       "controller/config: value.enabled: expected true"},
      {R"({"put": "controller/config", "value": {"isEnabled": true}})",
       "controller/config: value.isEnabled: no such field"},
      {R"({"put": "controller/config", "value": {"enabled": true, "enabled": false}})",
       "controller/config: value.enabled: the same field twice"},
      {R"({"put": "registration/a/config", "value": {"registrationGenId": 4294967296}})",
       "registration/a/config: value.registrationGenId: expected a whole number"},
      {R"({"put": "registration/a/config", "value": {"registrationGenId": 1e999}})",
       "registration/a/config: value.registrationGenId: the number"},
      {R"({"put": "registration/a/config", "value": {"systemId": "02:00"}})",
       "registration/a/config: value.systemId: expected a system id"},
      {R"({"put": "heartbeat/02:00", "value": {}})", "heartbeat/02:00: expected a system id"},
      {R"({"put": "heartbeat/02:00:00:00:00:01", "value": null})", "heartbeat/02:00:00:00:00:01: value: expected any"},
      {R"({"put": "mount/offer/02:00:00:00:00:01", "value": {"publishedMount": {"p": {"path": "q"}}}})",
       "mount/offer/02:00:00:00:00:01: value.publishedMount.p.path: differs from its key"},
      {R"({"put": "registration/a/config", "value": {"serviceConfig": {"topology": {"versionConfig": {"version": {"07": ""}}}}}})",
       "registration/a/config: value.serviceConfig.topology.versionConfig.version.07: expected a version number"},
      {"{\"put\": \"registration/a/x\", \"value\": \"\xC3\x28\"}", "not valid JSON at byte 39: invalid UTF-8"},
      {R"({"put": "registration/a/x", "value": "\ud800"})", "registration/a/x: "},
      {R"({"put": "registration/a/x", "value": )" + repeated("[", 10000) + repeated("]", 10000) + "}",
       "registration/a/x: value: nested deeper than 64"},
      {repeated("[", 10000), "nested deeper than 64"},
      {R"({"put": "registration/a/x", "value": ")" + std::string(kMaximumLineBytes, 'x') + "\"}",
       "the line is longer than"},
  };
  Folder folder;
  ReplayOptions options;
  options.isKeptGoing = true;
  std::string const good = R"({"put": "registration/b/x", "value": 1})"
                           "\n";
  for (auto const& [line, start] : cases) {
    options.scenarios = {folder.write("s", good + line + "\n")};
    options.output = folder / "tree";
    std::ostringstream problems;
    EXPECT_EQ(replay(options, problems), 1) << start;
    EXPECT_THAT(problems.str(), StartsWith(folder / "s:2: " + start));
    EXPECT_EQ(std::count(problems.view().begin(), problems.view().end(), '\n'), 1) << start;
    EXPECT_EQ(folder.read("tree"),
              "{\n  \"controller/config\": {\n    \"enabled\": false\n  },\n"
              "  \"controller/status\": {\n    \"controllerUUID\": \"\",\n    \"enabled\": false\n  },\n"
              "  \"registration/b/x\": 1\n}\n")
        << start;
  }
}

TEST(BadInput, ALineOf100MegabytesIsRefusedWithoutBeingKept) {
  Folder folder;
  Outcome const run =
      runProgram(folder,
                 "--version >/dev/null; { printf '{\"put\": \"registration/a/x\", \"value\": \"'; "
                 "head -c 100000000 /dev/zero | tr '\\0' x; printf '\"}\\n'; } | " ENROLIX_PROGRAM " replay -");
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, testing::EndsWith("-:1: the line is longer than 16777216 bytes\n"));
}

// Scenarios at random, over few names so that everything collides with everything.

using Random = std::mt19937;

std::string pick(Random& random, std::vector<std::string> const& from) { return from[random() % from.size()]; }
bool chance(Random& random, unsigned percent) { return random() % 100 < percent; }

std::string systemId(Random& random) {
  return pick(random, {"02:00:00:00:00:01", "02:00:00:00:00:02", "00:00:00:00:00:00"});
}
std::string service(Random& random) { return pick(random, {"s", "t", "u"}); }
std::string switchName(Random& random) { return pick(random, {"a", "b", "a-b"}); }

Json serviceConfig(Random& random) {
  Json json = Json::object();
  if (chance(random, 80)) json["enabled"] = chance(random, 80);
  if (chance(random, 80)) {
    Json& versions = json["versionConfig"]["version"] = Json::object();
    for (unsigned i = random() % 4; i > 0; --i) versions[pick(random, {"0", "1", "2", "4294967295"})] = service(random);
  }
  return json;
}

Json switchConfig(Random& random) {
  Json json = Json::object();
  if (chance(random, 90)) json["systemId"] = systemId(random);
  if (chance(random, 70)) {
    json["serviceConfig"] = Json::object();
    for (unsigned i = random() % 3; i > 0; --i) json["serviceConfig"][service(random)] = serviceConfig(random);
  }
  if (chance(random, 90)) json["enabled"] = chance(random, 80);
  if (chance(random, 90)) json["registrationGenId"] = random() % 3;
  return json;
}

Json mounts(Random& random) {
  Json json = {{"publishedMount", Json::object()}};
  for (unsigned i = random() % 3; i > 0; --i) {
    std::string const path = pick(random, {"p", "p/q", ""});
    json["publishedMount"][path] = {{"path", path}, {"type", service(random)}, {"service", service(random)}};
  }
  return json;
}

/// An operation that is right, and what makes sense at its path.
Json operation(Random& random) {
  std::string path;
  Json value = Json::object();
  switch (random() % 12) {
    case 0:
      path = "controller/config";
      value["enabled"] = chance(random, 75);
      break;
    case 1:
      path = "controller/status";
      value["controllerUUID"] = service(random);
      break;
    case 2:
    case 3:
    case 4:
      path = "registration/" + switchName(random) + "/config";
      value = switchConfig(random);
      break;
    case 5:
    case 6:
      path = "registration/" + switchName(random) + "/status";
      break;
    case 7:
      path = "registration/" + switchName(random) + pick(random, {"/x", "/y", ""});
      value = Json{1, service(random), Json::object()};
      break;
    case 8:
    case 9:
      path = "heartbeat/" + systemId(random);
      value["n"] = random() % 2;
      break;
    case 10:
      path = pick(random, {"service/config/", "service/override/"}) + service(random);
      value = serviceConfig(random);
      break;
    default:
      path = "mount/offer/" + systemId(random);
      value = mounts(random);
      if (chance(random, 40)) {
        path = "mount/ready/" + service(random);
        value = chance(random, 50);
      }
  }
  bool const isRemovable = path.rfind("controller/", 0) != 0;
  bool const isDirectory = path.rfind("registration/", 0) == 0 && std::count(path.begin(), path.end(), '/') == 1;
  if (isDirectory || (isRemovable && chance(random, 25))) return {{"delete", path}};
  return {{"put", path}, {"value", value}};
}

/// Replaces, removes or adds something somewhere in a document.
void damage(Random& random, Json& json) {
  Json* at = &json;
  while (!at->empty() && at->is_structured() && chance(random, 80)) {
    auto member = at->begin();
    std::advance(member, random() % at->size());
    at = &*member;
  }
  static std::vector<Json> const kValues = {nullptr,
                                            true,
                                            0,
                                            -1,
                                            4294967296,
                                            1.5,
                                            "",
                                            "02:00:00:00:00:01",
                                            "controller/switch/02:00:00:00:00:01",
                                            "registration/a/status",
                                            "service/status/a/s",
                                            "registration//x",
                                            Json::array(),
                                            Json::object()};
  Json const& value = kValues[random() % kValues.size()];
  if (at->is_object() && chance(random, 50))
    (*at)[pick(random, {"enabled", "value", "put", "delete", "path", "07", "s/t", "\x7F", ""})] = value;
  else
    *at = value;
}

/// A system id that was put in upper case is read in lower case.
Json inLowerCase(Json const& put) {
  if (!put.is_string()) return put;
  auto const address = Lumo::EthAddr::parse(put.get_ref<std::string const&>());
  return address ? Json(address->stringValue().view()) : put;
}

/// Whether `read` says what `put` said; what `put` left out may have any default. Keyed fields hold nothing else.
bool says(Json const& read, Json const& put) {
  if (!put.is_object()) return read == put || inLowerCase(put) == read;
  static std::set<std::string> const kKeyed = {"serviceConfig", "version", "publishedMount"};
  for (auto const& [name, value] : put.items()) {
    if (!read.contains(name) || !says(read[name], value)) return false;
    if (kKeyed.contains(name) && read[name].size() != value.size()) return false;
  }
  return true;
}

bool isRegistrys(std::string const& path) {
  return path.rfind("controller/", 0) == 0 || path.rfind("service/status/", 0) == 0;
}

/// The paths that hold a document, by what was put and deleted: the model of the tree. The registry's own are left out.
class Model {
 public:
  void apply(Operation const& operation) {
    std::string const path = toText(operation.path);
    if (operation.value)
      documents_[path] = *operation.value;
    else if (operation.path.place.isFolder())
      std::erase_if(documents_, [&](auto const& entry) { return entry.first.rfind(path + "/", 0) == 0; });
    else
      documents_.erase(path);
  }

  void check(StateTree const& tree) const {
    std::string last;
    std::size_t count = 0;
    tree.forEach([&](std::string const& path, Json const& document) {
      EXPECT_LT(last, path);
      last = path;
      EXPECT_EQ(tree.read(parsePath(path)), document) << path;
      if (isRegistrys(path)) return;
      ++count;
      auto const found = documents_.find(path);
      ASSERT_NE(found, documents_.end()) << path;
      EXPECT_TRUE(says(document, found->second)) << path << " holds " << document << ", put was " << found->second;
    });
    std::size_t const own =
        std::count_if(documents_.begin(), documents_.end(), [](auto const& entry) { return isRegistrys(entry.first); });
    EXPECT_EQ(count, documents_.size() - own);
  }

 private:
  std::map<std::string, Json> documents_;
};

TEST(BadInput, NoScenarioDoesHarm) {
  // Every trace statement is composed too; what is traced is dropped.
  Nox::traceLevelsIs("Enrolix", Nox::kAllTraceLevels);
  Nox::traceEnabledIs("Enrolix", true);
  std::size_t accepted = 0;
  std::size_t refused = 0;
  for (unsigned const seed : sampledRounds(150)) {
    Random random(seed);
    TreeWorld world;
    Model model;
    for (int step = 0; step < 150 && !testing::Test::HasFailure(); ++step) {
      Json json = operation(random);
      if (chance(random, 25)) damage(random, json);
      std::string line = json.dump();
      if (chance(random, 5)) line[random() % line.size()] = static_cast<char>(random());
      std::string const before = step % 10 == 0 ? world.text() : "";
      SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step) + ": " + line);
      try {
        Operation const operation = parseOperation(line);
        world.apply(operation);
        model.apply(operation);
        ++accepted;
      } catch (InputError const& error) {
        EXPECT_NE(error.reason(), "");
        if (!before.empty()) {
          EXPECT_EQ(world.text(), before);
        }
        ++refused;
      }
      if (step % 10 == 0) model.check(world.tree);
    }
  }
  Nox::traceEnabledIs("Enrolix", false);
  Nox::traceLevelsIs("Enrolix", 0);
  EXPECT_GT(accepted, refused);
  EXPECT_GT(refused, sampled(1000));
}

}  // namespace
}  // namespace Agent::BadInputTest
