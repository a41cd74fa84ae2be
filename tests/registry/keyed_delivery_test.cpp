// Heartbeats and offers reach the switches that have the system id; what the registry writes is what it writes when
// every switch is told of every one.
#include <gmock/gmock.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/rounds.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace KeyedDeliveryTest {
namespace {

using Test::sampled;
using Test::sampledRounds;

enum class Told { kConcerned, kAll, kAllByTraces };

/// A random story of a few switches that share, change and exchange their ids.
class Story {
 public:
  Story(unsigned seed, Told told)
      : random_(seed),
        peers_(Controller::PeerTable::noxType, answer(told)),
        offers_(Controller::PublishedMountsTable::noxType, answer(told)) {
    world_.enable();
    for (unsigned i = 0; i < kNames; ++i) world_.enrol(name(), id());
  }

  void step() {
    Nox::Name const n = name();
    Controller::SystemId const i = id();
    switch (pick(16)) {
      case 0:
      case 1:
        return world_.heartbeat(i);
      case 2:
        return world_.silence(i);
      case 3:
      case 4:
        return world_.putConfig(n, i, pick(4) != 0, pick(3));
      case 5:
        if (auto const config = world_.switchConfig(n)) config->systemIdIs(i);
        return;
      case 6:
        if (world_.dir(n)) world_.removeEntry(n, "config");
        return;
      case 7:
        return world_.putStatus(n);
      case 8: {
        auto const offer = world_.publishedMountsTable->systemIs(i);
        Controller::MountDesc mount;
        mount.path = pick(2) != 0 ? "/a" : "/b";
        mount.service = pick(2) != 0 ? "bgp" : "lldp";
        return offer->publishedMountIs(mount);
      }
      case 9:
        return world_.publishedMountsTable->systemDel(i);
      case 10:
        return world_.publishedMountsTable->servicePublishReadyIs("bgp", pick(2) != 0);
      case 11:
        if (auto const sm = world_.configSm(n)) changeInputs(*sm, n);
        return;
      case 12:
        if (auto const sm = world_.configSm(n)) sm->hasNotificationActiveIs(!sm->hasNotificationActive());
        return;
      default: {
        Nox::Turn turn;
        for (unsigned more = pick(6); more > 0; --more) step();
      }
    }
  }

 private:
  static constexpr unsigned kNames = 5;
  static bool (*answer(Told told))() {
    return told == Told::kAll ? [] { return true; } : [] { return false; };
  }

  /// Gives the machine another record, or a table again.
  void changeInputs(Controllerdb::SwitchConfigSm& sm, Nox::Name const& n) {
    switch (pick(6)) {
      case 0:
        return sm.configDel();
      case 1:
        return sm.heartbeatPeerTableDel();
      case 2:
        return sm.heartbeatPeerTableIs(world_.peers);
      case 3:
        return pick(3) == 0 ? sm.publishedMountsTableDel() : sm.publishedMountsTableIs(world_.publishedMountsTable);
      case 4:
        return sm.configIs(world_.switchConfig(name()));
      default: {
        auto const watch = sm.newConfig(sm.config());  // as the machine's own reactor, pointed elsewhere by hand
        watch->notifierIs(world_.switchConfig(n));
      }
    }
  }
  unsigned pick(unsigned n) { return static_cast<unsigned>(random_()) % n; }
  Nox::Name name() { return Nox::Name("leaf-" + std::to_string(pick(kNames))); }
  Controller::SystemId id() { return systemId(1 + pick(3)); }

  std::mt19937 random_;
  Nox::IgnoredChangesShow peers_;
  Nox::IgnoredChangesShow offers_;
  World world_;
};

std::vector<std::string> writes(unsigned seed, Told told) {
  WriteLog log;
  std::optional<TraceCapture> traces;
  if (told == Told::kAllByTraces) traces.emplace(std::initializer_list<int>{8});
  Story story(seed, told);
  std::vector<std::string> lines;
  for (unsigned i = 0; i < 150; ++i) {
    try {
      story.step();
    } catch (Nox::NameInUseException const&) {  // a directory went and came back within one turn
      lines.emplace_back("refused");
    }
    lines.insert(lines.end(), log.lines().begin(), log.lines().end());
    log.clear();
  }
  return lines;
}

TEST(KeyedDelivery, WritesWhatTellingEverySwitchWrites) {
  std::size_t written = 0;
  for (unsigned const seed : sampledRounds(200)) {
    std::vector<std::string> const expected = writes(seed, Told::kAll);
    ASSERT_EQ(writes(seed, Told::kConcerned), expected) << "seed " << seed;
    ASSERT_EQ(writes(seed, Told::kAllByTraces), expected) << "seed " << seed;
    written += expected.size();
  }
  EXPECT_GT(written, sampled(100'000));
}

TEST(KeyedDelivery, EverySwitchTracesAHeartbeatWhileThatIsTraced) {
  World world(3);
  TraceCapture traces({8});
  world.heartbeat(systemId(9));
  EXPECT_THAT(traces.lines(),
              testing::ElementsAre(
                  testing::HasSubstr("leaf-1 "), testing::HasSubstr("leaf-2 "), testing::HasSubstr("leaf-3 ")));
}

TEST(KeyedDelivery, EverySwitchTracesItsReadinessAtAnOfferWhileThatIsTraced) {
  World world(3);
  {
    TraceCapture traces({5});
    world.publishedMountsTable->systemIs(systemId(9));
    EXPECT_EQ(traces.lines().size(), 3U);
  }
  world.silence(systemId(1));
  TraceCapture traces({4});
  world.publishedMountsTable->systemDel(systemId(9));
  EXPECT_THAT(traces.lines(), testing::ElementsAre(testing::HasSubstr(" switch not ready")));
}

TEST(KeyedDelivery, EverySwitchLeavesAMessageInTheRing) {
  World world(3);
  RingCapture ring;
  world.heartbeat(systemId(9));
  EXPECT_EQ(ring.messages().size(), 3U);
}

}  // namespace

}  // namespace KeyedDeliveryTest
