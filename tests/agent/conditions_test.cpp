// The conditions of switches: what is decided from the records agrees with what the documents say, turn by turn.
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "agent/conditions/switch_conditions.h"
#include "support/random_history.h"
#include "support/rounds.h"
#include "support/tree_world.h"

namespace Agent::ConditionsTest {
namespace {

using Reasons = std::map<std::string, std::string>;

/// The conditions of one switch again, from documents alone: "Ready" or "Negotiated of routing" to the reason's code.
class Oracle {
 public:
  Oracle(std::map<std::string, Json> const& documents, std::string name, bool isServed, std::string lastEnd)
      : documents_(documents), name_(std::move(name)), isServed_(isServed), lastEnd_(std::move(lastEnd)) {}

  Reasons reasons() {
    Reasons all{{"Registered", registered()}, {"AgentEnabled", agent() ? "EnabledByOperator" : "AgentDisabled"}};
    if (!config()) {
      for (char const* const name : {"Enabled", "Heard", "IdentityUnique", "Answered"}) all[name] = "ConfigUnknown";
      all["Ready"] = "NoConfig";
      return all;
    }
    all["Enabled"] = (*config())["enabled"] ? "EnabledBySwitch" : "NotEnabled";
    all["Heard"] = at("heartbeat/" + id()) ? "HeartbeatThere" : lastEnd_;
    all["IdentityUnique"] = isShared() ? "SystemIdTaken" : hasGhost() ? "SystemIdChanged" : "IdentityOfItsOwn";
    all["Answered"] = answered();
    all["Ready"] = ready(all);
    if (status())
      for (std::string const& service : services()) add(all, service);
    return all;
  }

 private:
  std::optional<Json> at(std::string const& path) const {
    auto const found = documents_.find(path);
    return found != documents_.end() ? std::optional(found->second) : std::nullopt;
  }
  std::optional<Json> config() const { return at("registration/" + name_ + "/config"); }
  std::optional<Json> status() const { return at("registration/" + name_ + "/status"); }
  std::string id() const { return (*config())["systemId"]; }
  bool agent() const { return (*at("controller/config"))["enabled"]; }

  std::string registered() const {
    if (!config()) return "NoConfig";
    if (!status()) return "NoStatus";
    return isServed_ ? "Served" : agent() ? "EntryDeleted" : "AgentDisabled";
  }
  bool isShared() const {
    int count = 0;
    for (auto const& [path, document] : documents_)
      count += path.starts_with("registration/") && path.ends_with("/config") && document["systemId"] == id() ? 1 : 0;
    return count > 1;
  }
  bool hasGhost() const {
    for (auto const& [path, document] : documents_)
      if (path.starts_with("controller/switch/") && document["switchStatus"] == name_ &&
          path != "controller/switch/" + id())
        return true;
    return false;
  }
  std::string answered() const {
    if (!status()) return "NoStatus";
    if ((*status())["registrationGenId"] != (*config())["registrationGenId"]) return "GenerationBehind";
    return (*status())["controllerUUID"] == (*at("controller/status"))["controllerUUID"] ? "AsAskedFor"
                                                                                         : "IdentityBehind";
  }
  std::string ready(Reasons const& all) const {
    auto const row = at("controller/switch/" + id());
    if (row && (*row)["switchStatus"] == name_) return "RowThere";
    static std::set<std::string> const kMet{
        "Served", "EnabledBySwitch", "HeartbeatThere", "IdentityOfItsOwn", "SystemIdChanged"};
    for (char const* const name : {"Registered", "Enabled", "Heard", "IdentityUnique"})
      if (!kMet.contains(all.at(name))) return all.at(name);
    return "RowsMissingAfterReplacement";
  }

  std::map<std::string, std::string> offer() const {
    std::map<std::string, std::string> services;
    auto const document = at("mount/offer/" + id());
    if (!document) return services;
    for (auto const& [path, mount] : document->at("publishedMount").items()) services[path] = mount["service"];
    return services;
  }
  std::set<std::string> services() const {
    std::set<std::string> names;
    Json const own = config()->at("serviceConfig");
    for (auto const& [name, value] : own.items()) names.insert(name);
    Json const answer = *status();
    for (char const* const part : {"serviceStatus", "servicePublishedInfo"})
      for (auto const& [name, value] : answer[part].items()) names.insert(name);
    for (auto const& [path, service] : offer()) names.insert(service);
    return names;
  }
  void add(Reasons& all, std::string const& service) const {
    Json const own = (*config())["serviceConfig"].value(service, Json());
    auto const overriding = at("service/override/" + service);
    Json const theirs = overriding ? *overriding : at("service/config/" + service).value_or(Json());
    Json const found = (*status())["serviceStatus"].value(service, Json());
    all["Negotiated of " + service] = negotiated(own, theirs, overriding.has_value(), found);
    bool const isRecorded = !own.is_null() && !found.is_null();
    all["Current of " + service] = !isRecorded                          ? "NothingRecorded"
                                   : found == today(own, theirs, found) ? "SameToday"
                                                                        : "InputsChangedSince";
    all["Published of " + service] = published(service);
  }
  /// What a negotiation makes of a status.
  static Json today(Json const& own, Json const& theirs, Json status) {
    Json& outcome = status["versionStatus"];
    auto const conclude = [&](bool complete, bool compatible, std::uint64_t version, std::string const& desc) {
      outcome["negotiatedVersion"] = Json{{"version", version}, {"desc", desc}};
      outcome["versionCompatible"] = compatible;
      outcome["versionNegotiationComplete"] = complete;
    };
    if (theirs.is_null()) {
      conclude(own["enabled"].get<bool>() || outcome["versionNegotiationComplete"].get<bool>(), false, 0, "");
      return status;
    }
    status["enabled"] = own["enabled"].get<bool>() && theirs["enabled"].get<bool>();
    conclude(status["enabled"], false, 0, "");
    if (!status["enabled"]) return status;
    std::map<unsigned long, std::string> common;
    for (auto const& [version, desc] : own["versionConfig"]["version"].items())
      if (theirs["versionConfig"]["version"].contains(version)) common[std::stoul(version)] = desc;
    if (!common.empty()) conclude(true, true, common.rbegin()->first, common.rbegin()->second);
    return status;
  }
  static std::string negotiated(Json const& own, Json const& theirs, bool isOverridden, Json const& found) {
    if (own.is_null()) return "NotConfigured";
    if (found.is_null()) return "NotNegotiatedYet";
    if (found["versionStatus"]["versionCompatible"]) return isOverridden ? "OverrideInForce" : "HighestCommonVersion";
    if (found != today(own, theirs, found)) return "OutcomeOutdated";
    if (!own["enabled"]) return "DisabledBySwitch";
    if (theirs.is_null()) return "NotKnownToController";
    if (!theirs["enabled"]) return isOverridden ? "DisabledByOverride" : "DisabledByController";
    return "NoCommonVersion";
  }
  std::string published(std::string const& service) const {
    Json const info = (*status())["servicePublishedInfo"].value(service, Json());
    std::set<std::string> offered;
    std::set<std::string> there;
    for (auto const& [path, of] : offer())
      if (of == service) offered.insert(path);
    if (!info.is_null())
      for (auto const& [path, mount] : info["publishedMount"].items()) there.insert(path);
    if (!std::includes(there.begin(), there.end(), offered.begin(), offered.end())) return "OfferNotPublished";
    if (there.size() > offered.size()) return "MountsLeft";
    if (offered.empty()) return "NothingOffered";
    bool const isReady = at("mount/ready/" + service).value_or(Json(false));
    if (info["ready"] != isReady) return "ReadinessBehind";
    return isReady ? "AllPublished" : "MountsNotReady";
  }

  std::map<std::string, Json> const& documents_;
  std::string name_;
  bool isServed_;
  std::string lastEnd_;
};

std::map<std::string, Json> documentsOf(TreeWorld& world) {
  std::map<std::string, Json> documents;
  world.tree.forEach([&](std::string const& path, Json const& document) { documents[path] = document; });
  return documents;
}

/// What differs, as the changes of a turn.
std::vector<DocumentChange> changesBetween(std::map<std::string, Json> const& before,
                                           std::map<std::string, Json> const& after) {
  std::vector<DocumentChange> changes;
  for (auto const& [path, document] : before)
    if (!after.contains(path)) changes.push_back({path, nullptr});
  for (auto const& [path, document] : after)
    if (auto const known = before.find(path); known == before.end() || known->second != document)
      changes.push_back({path, std::make_shared<std::string const>(document.dump())});
  return changes;
}

Reasons reasonsOf(JudgedSwitch const& judged) {
  Reasons reasons;
  for (TimedJudgement const& one : judged.conditions) {
    std::string key(one.judgement.condition.name());
    if (one.judgement.condition.isOfService()) key += " of " + std::string(one.judgement.service.view());
    reasons[key] = one.judgement.reason->code;
  }
  return reasons;
}

class Conditions : public ::testing::Test {
 protected:
  SwitchConditions::Registry registry() {
    return {world.host.tables(), [this](Nox::Name const& name) { return world.host.isServed(name); }};
  }

  TreeWorld world;
  SwitchConditions conditions;
};

TEST_F(Conditions, AgreeWithTheDocumentsAfterEachTurn) {
  std::set<std::string> seen;
  for (std::uint32_t round = 0; round < ::Test::rounds(8); ++round) {
    std::uint32_t const seed = ::Test::firstSeed() + round;
    SCOPED_TRACE(::Test::repeats(seed));
    TreeWorld fresh;
    SwitchConditions tracked;
    SwitchConditions::Registry const of{fresh.host.tables(),
                                        [&](Nox::Name const& name) { return fresh.host.isServed(name); }};
    tracked.begin(of, {}, {});
    RandomHistory history(seed);
    std::map<std::string, std::string> lastEnd;
    auto before = documentsOf(fresh);
    for (Revision revision = 1; revision <= 150; ++revision) {
      std::string const line = history.next();
      fresh.apply(line);
      auto const after = documentsOf(fresh);
      auto const changes = changesBetween(before, after);
      for (DocumentChange const& change : changes)
        if (change.path.starts_with("heartbeat/") && change.text == nullptr)
          for (auto const& [path, document] : before)
            if (path.ends_with("/config") && path.starts_with("registration/") &&
                document["systemId"] == change.path.substr(10))
              lastEnd[path.substr(13, 1)] = "HeartbeatDeleted";
      for (auto const& [path, document] : after)
        if (auto const known = before.find(path); path.ends_with("/config") && path.starts_with("registration/"))
          if (known == before.end() || known->second["systemId"] != document["systemId"])
            lastEnd.erase(path.substr(13, 1));
      for (auto const& [path, document] : before)
        if (path.ends_with("/config") && path.starts_with("registration/") && !after.contains(path))
          lastEnd.erase(path.substr(13, 1));
      tracked.turn(of, changes, {revision, {}}, false);
      tracked.keptIs(revision);
      std::set<std::string> names;
      for (auto const& [path, document] : after)
        if (path.starts_with("registration/")) names.insert(path.substr(13, 1));
      for (auto at = lastEnd.begin(); at != lastEnd.end();)
        at = names.contains(at->first) ? std::next(at) : lastEnd.erase(at);
      std::set<std::string> told;
      tracked.forEach("", [&](std::string const& name, JudgedSwitch const& judged) {
        told.insert(name);
        auto const end = lastEnd.find(name);
        Oracle oracle(after, name, fresh.host.isServed(name), end != lastEnd.end() ? end->second : "NeverHeard");
        EXPECT_EQ(reasonsOf(judged), oracle.reasons()) << name << " after " << line << "\n" << fresh.text();
        for (TimedJudgement const& one : judged.conditions) {
          seen.emplace(one.judgement.reason->code);
          SwitchRecords const records(fresh.host.tables(), Nox::Name(name));
          Explanation const words = explain(records, {&one.judgement, 1}, tracked.neighbours(name)).front();
          EXPECT_THAT(words.sentence + words.advice + words.command, testing::Not(testing::HasSubstr("<")));
          EXPECT_FALSE(words.sentence.empty());
        }
        return true;
      });
      ASSERT_EQ(told, names);
      if (testing::Test::HasFailure()) return;
      before = after;
    }
  }
  // What this history does not bring about has tests of its own.
  for (ReasonRow const& row : kReasons) {
    if (std::set<std::string_view>{"HeartbeatExpired", "NotHeardSinceStart", "RegistrationDeleted"}.contains(row.code))
      continue;
    EXPECT_TRUE(seen.contains(std::string(row.code))) << row.code;
  }
}

}  // namespace
}  // namespace Agent::ConditionsTest
