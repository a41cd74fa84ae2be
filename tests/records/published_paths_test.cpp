// Finding the first service that holds a published mount: the same as a walk, whatever is changed, and whichever record
// changes it.
#include "records/published_paths.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "records/registration.h"

namespace PublishedPathsTest {

using Controller::MountDesc;
using ControllerRegistration::ServicePublishedInfo;
using ControllerRegistration::SwitchStatus;
using Nox::Ptr;
using Nox::String8;
using Nox::ValidPtr;

namespace {

/// Enough services for an index, and more.
constexpr unsigned kMany = 40;

String8 service(unsigned number) { return String8("service-" + std::to_string(number)); }
MountDesc mount(String8 const& path, String8 const& service) { return {path, "/remote", "", "rt", service}; }
void publish(SwitchStatus& status, String8 const& service, String8 const& path) {
  status.servicePublishedInfoIs(service)->publishedMountIs(mount(path, service));
}

Ptr<ServicePublishedInfo> walk(SwitchStatus const& status, String8 const& path) {
  for (auto at = status.servicePublishedInfoIterator(); at; ++at)
    if (!!at->publishedMount(path)) return at.member();
  return nullptr;
}

struct Status {
  ValidPtr<SwitchStatus> const record = Nox::make<SwitchStatus>("leaf-1");

  explicit Status(unsigned services = 0) {
    for (unsigned i = 0; i < services; ++i) publish(*record, service(i), service(i) + "/own");
  }
  SwitchStatus* operator->() const { return record.get(); }
  std::string holding(String8 const& path) const {
    Ptr<ServicePublishedInfo> const found = record->servicePublishedInfoHolding(path);
    return found ? std::string(found->name().view()) : "none";
  }
  bool agreesOn(String8 const& path) const { return record->servicePublishedInfoHolding(path) == walk(*record, path); }
};

/// Hears of every change of a status and of one of its services.
struct StatusListener : SwitchStatus::NotifieeConst {
  std::function<void(String8)> heard;
  void onServicePublishedInfo(String8 service) override { heard(service); }
};
struct InfoListener : ServicePublishedInfo::NotifieeConst {
  std::function<void(String8)> heard;
  void onPublishedMount(String8 path) override { heard(path); }
};

}  // namespace

class PublishedPathsOf : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(FewAndManyServices, PublishedPathsOf, testing::Values(1, 16, 17, kMany, 300));

TEST_P(PublishedPathsOf, FindsTheServiceOfEachPath) {
  Status const status(GetParam());
  EXPECT_EQ(status.holding("unknown"), "none");
  for (unsigned i = 0; i < GetParam(); ++i) EXPECT_EQ(status.holding(service(i) + "/own"), service(i).view());
  EXPECT_EQ(status.holding("unknown"), "none");
}

TEST_P(PublishedPathsOf, FindsTheFirstInTheCollectionsOrderAmongAllThatHoldThePath) {
  Status const status(GetParam());
  EXPECT_EQ(status.holding("shared"), "none");
  for (unsigned i = GetParam(); i-- > 0;) publish(*status.record, service(i), "shared");
  for (auto at = status->servicePublishedInfoIterator(); at; ++at) {
    EXPECT_EQ(status.holding("shared"), at->name().view());
    at->publishedMountDel("shared");
  }
  EXPECT_EQ(status.holding("shared"), "none");
}

TEST_P(PublishedPathsOf, CountsTheDefaultDescriptorAsNoMount) {
  Status const status(GetParam());
  auto const info = status->servicePublishedInfoIs(service(0));
  EXPECT_EQ(status.holding(""), "none");
  info->publishedMountIs(MountDesc());
  EXPECT_EQ(status.holding(""), "none");
  info->publishedMountIs(mount("", service(0)));
  EXPECT_EQ(status.holding(""), "service-0");
  info->publishedMountIs(MountDesc());
  EXPECT_EQ(status.holding(""), "none");
}

TEST_P(PublishedPathsOf, FindsWhatIsPublishedInsideAHandlerAndNothingThatIsGone) {
  Status const status(GetParam());
  EXPECT_EQ(status.holding("unknown"), "none");
  ValidPtr<StatusListener> const listener = Nox::make<StatusListener>();
  listener->notifierIs(status.record);
  std::vector<std::string> seen;
  listener->heard = [&](String8 name) {
    if (auto const info = status->servicePublishedInfo(name)) info->publishedMountIs(mount("welcome", name));
    seen.push_back(status.holding("welcome"));
  };
  status->servicePublishedInfoIs("newcomer");
  status->servicePublishedInfoDel("newcomer");
  EXPECT_EQ(seen, (std::vector<std::string>{"newcomer", "none"}));
}

TEST_P(PublishedPathsOf, AgreesWithTheCollectionWheneverAChangeIsHeardOf) {
  Status const status(GetParam());
  EXPECT_EQ(status.holding("unknown"), "none");
  auto const info = status->servicePublishedInfoIs(service(0));
  ValidPtr<InfoListener> const listener = Nox::make<InfoListener>();
  listener->notifierIs(info);
  unsigned changes = 0;
  listener->heard = [&](String8 const& path) {
    ++changes;
    EXPECT_TRUE(status.agreesOn(path)) << path;
  };
  info->publishedMountIs(mount("a", service(0)));
  info->publishedMountIs(mount("b", service(0)));
  info->publishedMountDel("a");
  info->publishedMountDelAll();
  EXPECT_EQ(changes, 5U);
}

TEST_P(PublishedPathsOf, ForgetsAServiceThatIsRemovedThoughItIsKeptAndChanged) {
  Status const status(GetParam());
  Ptr<ServicePublishedInfo> const kept = status->servicePublishedInfo(service(0));
  EXPECT_EQ(status.holding("service-0/own"), "service-0");
  status->servicePublishedInfoDel(service(0));
  EXPECT_EQ(status.holding("service-0/own"), "none");
  kept->publishedMountIs(mount("late", service(0)));
  EXPECT_EQ(status.holding("late"), "none");
  // Another one of the same name is another one.
  auto const other = status->servicePublishedInfoIs(service(0));
  other->publishedMountIs(mount("again", service(0)));
  kept->publishedMountIs(mount("again", service(0)));
  kept->publishedMountDelAll();
  EXPECT_EQ(status->servicePublishedInfoHolding("again"), other);
}

TEST_P(PublishedPathsOf, AServiceThatOutlivesTheStatusMayStillBeChanged) {
  Ptr<ServicePublishedInfo> kept;
  {
    Status const status(GetParam());
    EXPECT_EQ(status.holding("unknown"), "none");
    kept = status->servicePublishedInfo(service(0));
  }
  kept->publishedMountIs(mount("late", service(0)));
  kept->publishedMountDel("service-0/own");
  EXPECT_EQ(kept->publishedMount().members(), 1U);
}

TEST(PublishedPaths, AnIndexThatWasNeededOnceStaysTrueWhileTheServicesBecomeFewAndManyAgain) {
  Status const status(kMany);
  for (unsigned left = kMany; left-- > 0;) {
    ASSERT_EQ(status.holding(service(left) + "/own"), service(left).view());
    status->servicePublishedInfoDel(service(left));
    ASSERT_EQ(status.holding(service(left) + "/own"), "none");
  }
  for (unsigned i = 0; i < kMany; ++i) {
    publish(*status.record, service(i), "shared");
    ASSERT_TRUE(status.agreesOn("shared"));
  }
}

TEST(PublishedPaths, HoldsNothingBeforeItIsStarted) {
  Status const status(kMany);
  ControllerRegistration::PublishedPaths paths;
  paths.infoIs(*status->servicePublishedInfo(service(1)));
  EXPECT_FALSE(paths.isOn());
  EXPECT_EQ(paths.firstService("service-1/own"), nullptr);
  paths.start(*status.record);
  ASSERT_NE(paths.firstService("service-1/own"), nullptr);
  EXPECT_EQ(*paths.firstService("service-1/own"), service(1));
}

TEST(PublishedPaths, AgreesWithAWalkAfterEveryChange) {
  std::vector<String8> const paths = {"", "a", "b", "c/d", "e"};
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    auto const below = [&](std::size_t n) { return static_cast<unsigned>(random() % n); };
    Status const status;
    std::vector<Ptr<ServicePublishedInfo>> kept;
    for (int step = 0; step < 1000; ++step) {
      String8 const name = service(below(kMany));
      String8 const& path = paths[below(paths.size())];
      Ptr<ServicePublishedInfo> const present = status->servicePublishedInfo(name);
      unsigned const what = below(1000);
      if (what < 550) {
        publish(*status.record, name, path);
      } else if (what < 600) {
        status->servicePublishedInfoIs(name)->publishedMountIs(MountDesc());
      } else if (what < 760) {
        if (present) present->publishedMountDel(path);
      } else if (what < 840) {
        if (present) present->publishedMountDelAll();
      } else if (what < 920) {
        if (present) kept.push_back(present);
        status->servicePublishedInfoDel(name);
      } else if (what < 995) {
        if (!kept.empty()) kept[below(kept.size())]->publishedMountIs(mount(path, name));
      } else {
        status->servicePublishedInfoDelAll();
      }
      if (below(3) == 0) continue;  // an index that is not asked must be true as well
      for (String8 const& each : paths) ASSERT_TRUE(status.agreesOn(each)) << "seed " << seed << ", step " << step;
    }
  }
}

}  // namespace PublishedPathsTest
