// The scenarios' inputs, and the comparison of both registries.
#include "bench/end_to_end_scenario.h"

#include "bench/end_to_end_ours.h"
#include "bench/end_to_end_plain.h"

namespace EndToEnd {
namespace {

constexpr char const* kServices[] = {"telemetry", "topology", "vlan-control", "alerts", "tracing", "mirroring"};

ServiceInput service(std::string const& name, std::vector<unsigned> const& versions, bool enabled = true) {
  ServiceInput made{name, enabled, {}};
  for (unsigned const number : versions) made.versions.push_back({number, name + " " + std::to_string(number) + ".0"});
  return made;
}

MountInput mount(std::string const& serviceName, unsigned number) {
  std::string const leaf = serviceName + "/" + std::to_string(number);
  return {"/mnt/" + leaf, "/switch/export/" + leaf, "directory", "r", serviceName};
}

std::vector<std::string> names(std::size_t switches) {
  std::vector<std::string> all;
  all.reserve(switches);
  for (std::size_t i = 0; i < switches; ++i) all.push_back("leaf-" + std::to_string(i + 1));
  return all;
}

}  // namespace

Scenario uniformScenario(std::size_t switches) {
  Scenario scenario;
  scenario.profiles.emplace_back();
  Profile& profile = scenario.profiles.back();
  for (std::size_t s = 0; s < 4; ++s) {
    scenario.controllerServices.push_back(service(kServices[s], {2, 3, 4}));
    scenario.readyServices.emplace_back(kServices[s]);
    profile.services.push_back(service(kServices[s], {1, 2, 3}));
    profile.mounts.push_back(mount(kServices[s], 1));
    profile.mounts.push_back(mount(kServices[s], 2));
  }
  scenario.switchNames = names(switches);
  return scenario;
}

Scenario variedScenario(std::size_t switches) {
  Scenario scenario;
  scenario.controllerServices = {service("telemetry", {1, 2, 3}),
                                 service("topology", {5}),
                                 service("vlan-control", {2, 4}, false),
                                 service("alerts", {0, 7}),
                                 service("mirroring", {})};
  scenario.overrides = {service("topology", {6, 8})};
  scenario.readyServices = {"telemetry", "alerts"};
  for (unsigned p = 0; p < 23; ++p) {
    Profile profile;
    for (unsigned s = 0; s < std::size(kServices); ++s) {
      if ((p * 7 + s * 5) % 6 < 2) continue;
      std::vector<unsigned> versions;
      for (unsigned v = 0; v < (p + s) % 5; ++v) versions.push_back((v * 3 + p + s) % 9);
      profile.services.push_back(service(kServices[s], versions, (p + 2 * s) % 7 != 0));
    }
    for (unsigned m = 0; m < p % 9; ++m) profile.mounts.push_back(mount(kServices[(m + p) % std::size(kServices)], m));
    scenario.profiles.push_back(std::move(profile));
  }
  scenario.switchNames = names(switches);
  return scenario;
}

// Comparison.

namespace {

/// The first field that is not the same in both, with both texts.
std::string firstDifference(Documents const& ours, Documents const& plain) {
  static std::map<std::string, std::string> const none;
  Documents paths = ours;
  paths.insert(plain.begin(), plain.end());
  for (auto const& [path, unused] : paths) {
    auto const atOurs = ours.find(path);
    auto const atPlain = plain.find(path);
    if (atOurs == ours.end()) return path + " is in the plain one alone";
    if (atPlain == plain.end()) return path + " is in ours alone";
    std::map<std::string, std::string> fields = atOurs->second;
    fields.insert(atPlain->second.begin(), atPlain->second.end());
    for (auto const& [field, text] : fields) {
      auto const in = [&field = field](auto const& document) {
        auto const at = document.find(field);
        return at != document.end() ? at->second : std::string("(absent)");
      };
      std::string const our = in(atOurs->second);
      std::string const other = in(atPlain->second);
      if (our == other) continue;
      std::string difference = path;
      return difference.append(": ")
          .append(field)
          .append(": ours '")
          .append(our)
          .append("', plain '")
          .append(other + "'");
    }
  }
  return {};
}

/// Both registries, which get every input alike.
class Pair {
 public:
  template <class Step>
  void step(std::string const& name, Step const& does) {
    if (!difference_.empty()) return;
    does(ours_);
    does(plain_);
    std::string const found = firstDifference(ours_.documents(), plain_.documents());
    if (!found.empty()) difference_ = "after " + name + ": " + found;
  }
  std::string const& difference() const { return difference_; }

 private:
  OurRegistry ours_;
  PlainRegistry plain_;
  std::string difference_;
};

}  // namespace

std::string differenceFromPlain() {
  Scenario const scenario = variedScenario(100);
  Pair pair;
  auto const eachOf = [&](std::size_t divisor, auto const& does) {
    for (std::size_t i = 0; i < scenario.switchNames.size(); i += divisor) does(i);
  };
  auto const phase = [&](std::string const& name, Phase p) { pair.step(name, [&](auto& r) { run(p, r, scenario); }); };
  pair.step("preparation", [&](auto& r) { prepare(r, scenario); });
  phase("enrolment", Phase::kEnrol);
  phase("heartbeats", Phase::kHear);
  phase("a generation", Phase::kRenew);

  pair.step("silence", [&](auto& r) { eachOf(3, [&](auto i) { r.removeHeartbeat(Scenario::systemId(i)); }); });
  pair.step("other offers", [&](auto& r) {
    eachOf(2, [&](auto i) { r.putOffer(Scenario::systemId(i), scenario.profile(i + 1).mounts); });
  });
  pair.step("ready flags", [&](auto& r) {
    r.putReady("topology", true);
    r.putReady("telemetry", false);
  });
  pair.step("no offers", [&](auto& r) { eachOf(5, [&](auto i) { r.removeOffer(Scenario::systemId(i)); }); });
  pair.step("a service switched on", [&](auto& r) { r.putService(service("vlan-control", {1, 2, 3})); });
  pair.step("a service switched off", [&](auto& r) { r.putService(service("telemetry", {1}, false)); });
  pair.step("other overrides", [&](auto& r) {
    r.removeOverride("topology");
    r.putOverride(service("alerts", {1, 3, 5}));
    r.removeService("mirroring");
  });
  pair.step("other configurations", [&](auto& r) {
    eachOf(2, [&](auto i) {
      SwitchInput input = scenario.input(i, i % 4 == 0 ? 3 : 2);
      input.services = &scenario.profile(i + 3).services;
      input.enabled = i % 10 != 0;
      r.putConfig(input);
    });
  });
  pair.step("heartbeats again", [&](auto& r) { eachOf(3, [&](auto i) { r.putHeartbeat(Scenario::systemId(i)); }); });
  pair.step("lost entries", [&](auto& r) {
    eachOf(7, [&](auto i) { r.removeEntry(scenario.switchNames[i], "status"); });
    eachOf(14, [&](auto i) { r.removeEntry(scenario.switchNames[i], "config"); });
  });
  pair.step("entries again", [&](auto& r) {
    eachOf(7, [&](auto i) { r.putStatus(scenario.switchNames[i]); });
    eachOf(14, [&](auto i) { r.putConfig(scenario.input(i, 4)); });
  });
  pair.step("offers again", [&](auto& r) {
    eachOf(1, [&](auto i) { r.putOffer(Scenario::systemId(i), scenario.profile(i).mounts); });
  });
  pair.step("the agent disabled", [&](auto& r) { r.enableAgent(false); });
  pair.step("another controller", [&](auto& r) {
    r.nameController("the-other");
    eachOf(4, [&](auto i) { r.putGeneration(scenario.switchNames[i], 9); });
    r.removeRegistration(scenario.switchNames[1]);
    r.putConfig(scenario.input(1, 9));
    r.putStatus(scenario.switchNames[1]);
  });
  pair.step("the agent enabled", [&](auto& r) { r.enableAgent(true); });
  pair.step("another generation",
            [&](auto& r) { eachOf(1, [&](auto i) { r.putGeneration(scenario.switchNames[i], 10); }); });
  phase("leave", Phase::kLeave);
  return pair.difference();
}

}  // namespace EndToEnd
