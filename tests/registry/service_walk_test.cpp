// Tests of the ready pass's walk, while members go and come under it: a write of one negotiation removes them.
#include <gmock/gmock.h>

#include <random>
#include <set>

#include "service_steps.h"

namespace ServiceWalkTest {
namespace {

using namespace ServiceTest;
using testing::IsEmpty;

/// A ready switch with these services; `during(service)` runs inside the negotiation of each, once.
class ServiceWalk : public testing::Test {
 protected:
  void begin(unsigned services) {
    for (unsigned i = 0; i < services; ++i) one.configure("s" + std::to_string(i), kOne);
    one.hear();
    one.start();
    order = switchMembers(one);
  }
  /// The services that a pass negotiates, in order.
  Lines pass(std::function<void(std::string const& service)> const& during) const {
    Lines negotiated;
    WriteHook const hook([&](std::string const& line) {
      std::string const begin = "switch/";
      std::string const end = ".versionNegotiationComplete = 1";
      if (line.size() < end.size() || line.compare(line.size() - end.size(), end.size(), end) != 0) return;
      negotiated.push_back(line.substr(begin.size(), line.find('/', begin.size()) - begin.size()));
      during(negotiated.back());
    });
    one.sm->handleSwitchConfig();
    return negotiated;
  }
  OneSwitch one;
  Lines order;
};

TEST_F(ServiceWalk, SurvivesTheRemovalOfTheMemberThatItStandsOn) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDel(service);
            }),
            order);
  EXPECT_EQ(switchMembers(one), (Lines{order[0], order[2], order[3], order[4]}));
}

TEST_F(ServiceWalk, PassesOverARemovedNextMember) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDel(order[2]);
            }),
            (Lines{order[0], order[1], order[3], order[4]}));
}

TEST_F(ServiceWalk, PassesOverARemovedNextMemberBehindARemovedCurrentOne) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service != order[1]) return;
              one.sm->serviceConfigDel(order[1]);
              one.sm->serviceConfigDel(order[2]);
            }),
            (Lines{order[0], order[1], order[3], order[4]}));
}

TEST_F(ServiceWalk, EndsWhenEveryMemberIsRemoved) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDelAll();
            }),
            (Lines{order[0], order[1]}));
  EXPECT_THAT(switchMembers(one), IsEmpty());
  EXPECT_EQ(one.status->registrationGenId(), one.config->registrationGenId());
}

TEST_F(ServiceWalk, VisitsEveryMemberOfWhichEachRemovesItself) {
  begin(40);
  EXPECT_EQ(pass([&](std::string const& service) { one.sm->serviceConfigDel(service); }), order);
  EXPECT_THAT(switchMembers(one), IsEmpty());
}

TEST_F(ServiceWalk, DoesNotVisitAMemberAgainThatIsMadeAnew) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              one.sm->serviceConfigDel(service);
              one.sm->serviceConfigIs(makeService(service, kOne));
            }),
            order);
  EXPECT_EQ(switchMembers(one), order);
}

TEST_F(ServiceWalk, VisitsWhatTheModelVisitsUnderRandomRemovalsAndReturns) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    one = OneSwitch();
    begin(1 + static_cast<unsigned>(random() % 24));
    // The model: positions in the order of all names, which of them are there, and where the walk stands.
    std::set<std::size_t> present;
    for (std::size_t i = 0; i < order.size(); ++i) present.insert(i);
    Lines expected;
    std::size_t at = 0;
    Lines const visited = pass([&](std::string const& service) {
      auto const next = present.lower_bound(at);
      if (next != present.end()) {
        expected.push_back(order[*next]);
        at = *next + 1;
      }
      EXPECT_EQ(service, expected.back());
      for (unsigned changes = static_cast<unsigned>(random() % 4); changes > 0; --changes) {
        std::size_t const which = random() % order.size();
        if (present.erase(which) != 0) {
          one.sm->serviceConfigDel(order[which]);
        } else {
          present.insert(which);
          one.sm->serviceConfigIs(makeService(order[which], kOne));
        }
      }
    });
    EXPECT_EQ(present.lower_bound(at), present.end()) << "the walk ended early";
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(switchMembers(one).size(), present.size());
  }
}

}  // namespace

}  // namespace ServiceWalkTest
