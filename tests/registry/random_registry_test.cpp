// Random sequences of everything that reaches the registry from outside, against a small model of what comes of it.
#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>

#include "support/world.h"

namespace RandomRegistryTest {
namespace {

using Id = unsigned;  // stands for systemId(id)

/// What the world is to look like, kept without any notification: each fact is followed through by hand.
class Model {
 public:
  struct Config {
    Id id;
    bool enabled;
    unsigned genId;
  };
  struct Status {
    bool shutdownAck = false;
    std::string uuid;
    unsigned genId = 0;
  };
  struct Directory {
    std::shared_ptr<Config> config;
    std::shared_ptr<Status> status;
    bool note = false;
    bool empty() const { return !config && !status && !note; }
  };
  /// A configuration machine: what it was made from. `age` orders machines by their making.
  struct Machine {
    std::shared_ptr<Config> config;
    std::shared_ptr<Status> status;
    std::string uuid;
    unsigned age;
  };

  bool agentEnabled = false;
  bool statusEnabled = false;
  bool rootIsThere = true;
  std::string uuid = "uuid-1";
  std::set<Id> peers;
  std::map<std::string, Directory> directories;
  /// The names that are served, each with its configuration machine or none.
  std::map<std::string, std::optional<Machine>> served;
  std::set<std::string> serviceStatusDirs;
  /// The name of the registration whose records stand in the rows of an id.
  std::map<Id, std::string> rows;

  /// `order` is that in which the registration root iterates.
  void agentIs(bool enabled, std::vector<std::string> const& order) {
    if (enabled == agentEnabled) return;
    agentEnabled = enabled;
    if (rootIsThere) followAgent(order);
  }
  void rootDel() {
    rootIsThere = false;
    endAll();
  }
  void rootNew(std::vector<std::string> const& order) {
    if (rootIsThere) return;
    rootIsThere = true;
    serviceStatusDirs.clear();
    followAgent(order);
  }
  void heartbeat(Id id) {
    if (peers.insert(id).second) peerChanged(id);
  }
  void silence(Id id) {
    if (peers.erase(id) != 0) peerChanged(id);
  }
  void putConfig(std::string const& name, Config const& c) {
    if (auto const config = directories[name].config) {
      bool const heard = config->enabled != c.enabled || config->genId != c.genId;  // the id runs no pass
      *config = c;
      if (heard && served.count(name) != 0 && served[name]) pass(name, *served[name]);
      return;
    }
    bool const isFirst = directories[name].empty();
    directories[name].config = std::make_shared<Config>(c);
    entered(name, isFirst);
  }
  void putStatus(std::string const& name) {
    if (directories[name].status) return;
    bool const isFirst = directories[name].empty();
    directories[name].status = std::make_shared<Status>();
    entered(name, isFirst);
  }
  void putNote(std::string const& name) {
    if (directories[name].note) return;
    bool const isFirst = directories[name].empty();
    directories[name].note = true;
    entered(name, isFirst);
  }
  void remove(std::string const& name, std::string const& entry) {
    auto const at = directories.find(name);
    if (at == directories.end()) return;
    Directory& d = at->second;
    bool const was = entry == "config" ? d.config != nullptr : entry == "status" ? d.status != nullptr : d.note;
    if (entry == "config") d.config = nullptr;
    if (entry == "status") d.status = nullptr;
    if (entry == "note") d.note = false;
    if (was && served.count(name) != 0) end(served[name]);  // whichever entry it was
    if (d.empty()) leave(name);
  }
  void leave(std::string const& name) {
    if (directories.erase(name) == 0 || !rootIsThere) return;
    if (served.count(name) != 0) end(served[name]);
    served.erase(name);
    serviceStatusDirs.erase(name);
  }

 private:
  void followAgent(std::vector<std::string> const& order) {
    if (agentEnabled) {
      for (std::string const& name : order) serve(name);
    } else {
      endAll();
      serviceStatusDirs.clear();
    }
    statusEnabled = agentEnabled;
  }
  void serve(std::string const& name) {
    serviceStatusDirs.insert(name);
    if (served.try_emplace(name).second) look(name);
  }
  // An entry is new. The first one brings the directory, of which the registration root hears, the agent's being
  // disabled or not; of the others only the directory's own machine hears.
  void entered(std::string const& name, bool isFirst) {
    if (!rootIsThere) return;
    if (isFirst)
      serve(name);
    else if (served.count(name) != 0)
      look(name);
  }
  // Any present entry leads here: a machine is made for a complete directory, in place of one made from other inputs,
  // whose clean-up comes after the first pass of the new one.
  void look(std::string const& name) {
    Directory const& d = directories[name];
    if (!d.config || !d.status) return;
    std::optional<Machine>& slot = served[name];
    if (slot && slot->config == d.config && slot->status == d.status && slot->uuid == uuid) return;
    std::optional<Machine> old = std::exchange(slot, Machine{d.config, d.status, uuid, ++made_});
    pass(name, *slot);
    end(old);
  }
  void peerChanged(Id id) {
    std::map<unsigned, std::pair<std::string, Machine>> byAge;
    for (auto const& [name, machine] : served)
      if (machine && machine->config->id == id) byAge.emplace(machine->age, std::pair(name, *machine));
    for (auto const& [age, named] : byAge) pass(named.first, named.second);
  }
  void pass(std::string const& name, Machine const& m) {
    if (m.config->enabled && peers.count(m.config->id) != 0) {
      rows[m.config->id] = name;
      *m.status = {false, m.uuid, m.config->genId};
    } else {
      m.status->shutdownAck = true;
      rows.erase(m.config->id);
    }
  }
  void end(std::optional<Machine>& machine) {
    if (machine) rows.erase(machine->config->id);
    machine.reset();
  }
  void endAll() {
    for (auto& [name, machine] : served) end(machine);
    served.clear();
  }

  unsigned made_ = 0;
};

/// One sequence: a few names and ids, so that they collide, in a world and in its model.
class Story {
 public:
  explicit Story(unsigned seed) : random(seed) {}

  /// One random step, taken by both. Returns what it was.
  std::string step() {
    std::string const n = name();
    Id const i = id();
    switch (pick(20)) {
      case 0:
        world.enable();
        model.agentIs(true, order());
        return "agent on";
      case 1:
        if (pick(2) != 0) return "nothing";
        world.disable();
        model.agentIs(false, order());
        return "agent off";
      case 2:
        if (pick(4) != 0) return "nothing";
        world.root->registryRootSmDel();
        model.rootDel();
        return "root machine removed";
      case 3:
        world.newRegistryRootSm();
        model.rootNew(order());
        return "root machine made";
      case 4:
        model.uuid = "uuid-" + std::to_string(pick(2));
        world.status->controllerUUIDIs(model.uuid);
        return "identity " + model.uuid;
      case 5:
        if (!world.dir(n)) return "nothing";
        world.leave(n);
        model.leave(n);
        return "leave " + n;
      case 6:
      case 7: {
        char const* const entry = std::array{"config", "status", "note"}[pick(3)];
        if (!world.dir(n)) return "nothing";
        world.removeEntry(n, entry);
        model.remove(n, entry);
        return "remove " + n + ' ' + entry;
      }
      case 8:
        if (!world.dir(n) || !world.dir(n)->entry("note")) world.enter(n, "note", Nox::make<Nox::Entity>("note"));
        model.putNote(n);
        return "note " + n;
      case 9:
      case 10:
      case 11:
        world.putStatus(n);
        model.putStatus(n);
        return "status " + n;
      case 12:
      case 13:
      case 14:
        world.heartbeat(systemId(i));
        model.heartbeat(i);
        return "heartbeat " + std::to_string(i);
      case 15:
        world.silence(systemId(i));
        model.silence(i);
        return "silence " + std::to_string(i);
      default: {
        Model::Config const c{.id = i, .enabled = pick(4) != 0, .genId = pick(3)};
        world.putConfig(n, systemId(c.id), c.enabled, c.genId);
        model.putConfig(n, c);
        return "config " + n + ' ' + std::to_string(c.id) + (c.enabled ? " on " : " off ") + std::to_string(c.genId);
      }
    }
  }

  std::string seen() const {
    std::string text = world.status->enabled() ? "enabled" : "disabled";
    for (Id i = 1; i <= kIds; ++i) text += "\n  id " + std::to_string(i) + ": " + world.rows(systemId(i));
    for (unsigned i = 0; i < kNames; ++i) {
      Nox::Name const n("leaf-" + std::to_string(i));
      text += "\n  " + std::string(n.view()) + ": " + world.answer(n);
      if (world.registrySm(n)) text += " served";
      if (auto const sm = world.configSm(n)) text += " as " + std::string(sm->controllerUUID().view());
      if (world.serviceStatusDir(n)) text += " with services";
    }
    return text;
  }
  std::string expected() const {
    std::string text = model.statusEnabled ? "enabled" : "disabled";
    for (Id i = 1; i <= kIds; ++i) {
      auto const row = model.rows.find(i);
      text += "\n  id " + std::to_string(i) + ": " +
              (row == model.rows.end() ? "- - -" : row->second + ' ' + row->second + " 1");
    }
    for (unsigned i = 0; i < kNames; ++i) {
      std::string const n = "leaf-" + std::to_string(i);
      auto const d = model.directories.find(n);
      text += "\n  " + n + ": ";
      if (d == model.directories.end() || !d->second.status)
        text += "none";
      else
        text += std::string(d->second.status->shutdownAck ? "1 " : "0 ") + d->second.status->uuid + ' ' +
                std::to_string(d->second.status->genId);
      if (auto const s = model.served.find(n); s != model.served.end())
        text += s->second ? " served as " + s->second->uuid : " served";
      if (model.serviceStatusDirs.count(n) != 0) text += " with services";
    }
    return text;
  }

 private:
  static constexpr Id kIds = 3;
  static constexpr unsigned kNames = 4;

  std::string name() { return "leaf-" + std::to_string(pick(kNames)); }
  Id id() { return 1 + pick(kIds); }
  unsigned pick(unsigned n) { return static_cast<unsigned>(random()) % n; }
  std::vector<std::string> order() const {
    std::vector<std::string> names;
    for (auto at = world.registrationRootDir->entityPtrIteratorConst(); at; ++at)
      names.emplace_back(at->fwkKey().view());
    return names;
  }

  std::mt19937 random;
  World world;
  Model model;
};

class RandomRegistry : public testing::TestWithParam<unsigned> {};

TEST_P(RandomRegistry, BehavesAsTheModel) {
  constexpr unsigned kSeeds = 50;
  constexpr unsigned kSteps = 300;
  for (unsigned seed = GetParam() * kSeeds; seed < (GetParam() + 1) * kSeeds; ++seed) {
    Story run(seed);
    std::string steps;
    for (unsigned i = 0; i < kSteps; ++i) {
      steps += run.step() + '\n';
      ASSERT_EQ(run.seen(), run.expected()) << "seed " << seed << ", after:\n" << steps;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRegistry, testing::Range(0U, 8U));

}  // namespace

}  // namespace RandomRegistryTest
