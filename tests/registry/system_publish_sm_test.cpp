// The publication machine of one switch: publishing and withdrawing.
#include "registry/system_publish_sm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "publication_support.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace SystemPublishSmTest {
namespace {

using namespace Publication;
using Controller::MountDesc;
using Controllerdb::SystemPublishSm;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr auto kFullPass = "8 49 void Controllerdb::SystemPublishSm::handlePublishedMount()";
std::string onePath(std::string const& path) {
  return "8 17 void Controllerdb::SystemPublishSm::handlePublishedMount(Nox::String) " + path;
}

TEST(SystemPublishSm, PublishesEveryOfferedPathOfAServiceWithTheServicesReadiness) {
  Publishing p;
  p.table->servicePublishReadyIs("topology", true);
  p.start({mountOf("topology", "a"), mountOf("topology", "b"), mountOf("routing", "c")});
  EXPECT_THAT(p.published(),
              UnorderedElementsAre("topology ready",
                                   "topology: a /state/a - rt topology",
                                   "topology: b /state/b - rt topology",
                                   "routing",
                                   "routing: c /state/c - rt routing"));
}

TEST(SystemPublishSm, WritesTheServiceThenItsReadinessThenTheMount) {
  Publishing p;
  p.table->servicePublishReadyIs("topology", true);
  p.start({});
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  p.offer->publishedMountIs(mountOf("topology", "link/a"));
  EXPECT_THAT(log.lines(),
              ElementsAre("02:00:00:00:00:01.publishedMount[link/a] = link/a /state/link/a - rt topology",
                          "leaf-1.servicePublishedInfo[topology] = {}",
                          "topology.ready = 1",
                          "topology.publishedMount[link/a] = link/a /state/link/a - rt topology"));
  EXPECT_THAT(text.lines(), ElementsAre(onePath("link/a"), "5 23 handlePublishedMount publishing: link/a"));
  EXPECT_THAT(ring.messages(), ElementsAre("5 22 handlePublishedMount publishing:link/a"));
}

TEST(SystemPublishSm, WithdrawsAPathThatIsNoLongerOfferedAndLeavesTheOthers) {
  Publishing p;
  p.start({mountOf("topology", "a"), mountOf("topology", "b")});
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  p.offer->publishedMountDel("a");
  EXPECT_THAT(log.lines(),
              ElementsAre("02:00:00:00:00:01.publishedMount[a] deleted", "topology.publishedMount[a] deleted"));
  EXPECT_THAT(text.lines(), ElementsAre(onePath("a"), "5 39 handlePublishedMount withdrawing: a"));
  EXPECT_THAT(ring.messages(), ElementsAre("5 38 handlePublishedMount withdrawing:a"));
  EXPECT_THAT(p.published(), ElementsAre("topology", "topology: b /state/b - rt topology"));
}

TEST(SystemPublishSm, AMountThatMovesToAnotherServiceStaysWithTheFirstWhileItIsOffered) {
  Publishing p;
  p.table->servicePublishReadyIs("routing", true);
  p.start({mountOf("topology", "a")});
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  p.offer->publishedMountIs(mountOf("routing", "a"));
  EXPECT_THAT(log.lines(),
              ElementsAre("02:00:00:00:00:01.publishedMount[a] = a /state/a - rt routing",
                          "leaf-1.servicePublishedInfo[routing] = {}",
                          "routing.ready = 1",
                          "routing.publishedMount[a] = a /state/a - rt routing"));
  EXPECT_THAT(text.lines(), ElementsAre(onePath("a"), "5 23 handlePublishedMount publishing: a"));
  EXPECT_THAT(ring.messages(), ElementsAre("5 22 handlePublishedMount publishing:a"));
  EXPECT_THAT(
      p.published(),
      UnorderedElementsAre(
          "topology", "topology: a /state/a - rt topology", "routing ready", "routing: a /state/a - rt routing"));
}

TEST(SystemPublishSm, WithdrawsAPathOfTwoServicesFromTheFirstInOrderOneInEachCall) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  p.offer->publishedMountIs(mountOf("routing", "a"));
  std::string const first = p.firstHolding("a");
  p.offer->publishedMountDel("a");
  std::string const second = p.firstHolding("a");
  EXPECT_THAT((std::vector{first, second}), UnorderedElementsAre("topology", "routing"));
  TraceCapture text({5});
  p.sm->handlePublishedMount("a");
  EXPECT_EQ(p.firstHolding("a"), "nobody");
  p.sm->handlePublishedMount("a");
  EXPECT_THAT(text.lines(), ElementsAre("5 39 handlePublishedMount withdrawing: a"));
}

TEST(SystemPublishSm, AFullPassWithdrawsEveryCopy) {
  Publishing p;
  p.start({mountOf("topology", "a"), mountOf("topology", "b")});
  p.offer->publishedMountIs(mountOf("routing", "a"));
  {
    Nox::Turn turn;
    p.offer->publishedMountDel("a");
    TraceCapture text({5});
    p.sm->handlePublishedMount();
    EXPECT_THAT(text.lines(),
                testing::IsSupersetOf(
                    {"5 39 handlePublishedMount withdrawing: a", "5 39 handlePublishedMount withdrawing: a"}));
  }
  EXPECT_EQ(p.firstHolding("a"), "nobody");
  EXPECT_EQ(p.firstHolding("b"), "topology");
}

TEST(SystemPublishSm, ALargeFullPassSurvivesItsOwnRemovals) {
  Publishing p;
  for (int i = 0; i < 60; ++i)
    for (int j = 0; j < 60; ++j) {
      std::string const service = "service-" + std::to_string(i);
      p.status->servicePublishedInfoIs(service.c_str())
          ->publishedMountIs(mountOf(service.c_str(), ("path-" + std::to_string(j)).c_str()));
    }
  p.start({mountOf("service-1", "path-1")});
  for (auto at = p.status->servicePublishedInfoIterator(); at; ++at)
    EXPECT_EQ(at->publishedMount().members(), 1U) << at->name();  // the one that is still offered
}

TEST(SystemPublishSm, APathThatNobodyHoldsOrOffersIsTracedAtEntryAlone) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  WriteLog log;
  TraceCapture text({1, 3, 4, 5, 7, 8});
  RingCapture ring;
  p.sm->handlePublishedMount("nowhere");
  EXPECT_THAT(text.lines(), ElementsAre(onePath("nowhere")));
  EXPECT_THAT(ring.messages(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SystemPublishSm, RepublishingAnUnchangedMountWritesItAgainWithTheReadinessOfNow) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  p.table->servicePublishReadyIs("topology", true);
  EXPECT_FALSE(p.status->servicePublishedInfo("topology")->ready());
  WriteLog log;
  p.sm->handlePublishedMount("a");
  EXPECT_THAT(log.lines(),
              ElementsAre("leaf-1.servicePublishedInfo[topology] = {} (equal)",
                          "topology.ready = 1",
                          "topology.publishedMount[a] = a /state/a - rt topology (equal)"));
  log.clear();
  p.table->servicePublishReadyDel("topology");
  p.sm->handlePublishedMount("a");
  EXPECT_THAT(log.linesWith("topology.ready"), ElementsAre("topology.ready = 0"));
}

TEST(SystemPublishSm, PublishesAnyOfferedModeAsReadThroughAndCopiesTheOtherFields) {
  for (char const* mode : {"rt", "ro", "rw", ""}) {
    Publishing p;
    p.start({MountDesc{"a", "/remote", "Type", mode, "topology"}});
    EXPECT_EQ(p.status->servicePublishedInfo("topology")->publishedMount("a"),
              (MountDesc{"a", "/remote", "Type", "rt", "topology"}))
        << mode;
  }
}

TEST(SystemPublishSm, TheFullPassDecidesWhatIsPublishedThenWhatIsOffered) {
  Publishing p;
  p.status->servicePublishedInfoIs("topology")->publishedMountIs(mountOf("topology", "gone"));
  TraceCapture text({5, 8});
  RingCapture ring;
  WriteLog log;
  p.start({mountOf("routing", "a")});
  EXPECT_THAT(text.lines(),
              ElementsAre(kFullPass,
                          onePath("gone"),
                          "5 39 handlePublishedMount withdrawing: gone",
                          onePath("a"),
                          "5 23 handlePublishedMount publishing: a"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("5 38 handlePublishedMount withdrawing:gone", "5 22 handlePublishedMount publishing:a"));
  log.clear();
  p.sm->handlePublishedMount();
  // Published when it is found held, and again when it is found offered.
  EXPECT_THAT(log.linesWith(".publishedMount["),
              ElementsAre("routing.publishedMount[a] = a /state/a - rt routing (equal)",
                          "routing.publishedMount[a] = a /state/a - rt routing (equal)"));
}

TEST(SystemPublishSm, TheFirstPassRunsOnce) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  EXPECT_TRUE(p.sm->initialized());
  TraceCapture text({8});
  p.sm->handleInitialized();
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SystemPublishSm, WithoutAnOfferNothingIsOfferedAndWhatIsPublishedGoes) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  p.sm->systemPublishedMountIs(nullptr);
  EXPECT_EQ(p.firstHolding("a"), "topology");
  p.sm->handlePublishedMount();
  EXPECT_THAT(p.published(), ElementsAre("topology"));

  p.status->servicePublishedInfoIs("routing")->publishedMountIs(mountOf("routing", "b"));
  auto const without = SystemPublishSm::SystemPublishSmIs(nullptr, p.status, p.table);
  EXPECT_EQ(without->systemPublishedMount(), nullptr);
  EXPECT_EQ(p.firstHolding("b"), "nobody");
}

TEST(SystemPublishSm, WithoutAStatusNothingIsWritten) {
  Publishing p;
  p.offer->publishedMountIs(mountOf("topology", "a"));
  WriteLog log;
  TraceCapture text({5, 8});
  auto const sm = SystemPublishSm::SystemPublishSmIs(p.offer, nullptr, p.table);
  sm->handlePublishedMount("a");
  sm->handlePublishedMount("nowhere");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(text.lines(), ElementsAre(kFullPass, onePath("a"), onePath("a"), onePath("nowhere")));
}

TEST(SystemPublishSm, WithoutATableNothingIsReady) {
  Publishing p;
  p.offer->publishedMountIs(mountOf("topology", "a"));
  p.status->servicePublishedInfoIs("topology")->readyIs(true);
  auto const sm = SystemPublishSm::SystemPublishSmIs(p.offer, p.status, nullptr);
  EXPECT_EQ(sm->publishedMountsTable(), nullptr);
  EXPECT_THAT(p.published(), ElementsAre("topology", "topology: a /state/a - rt topology"));
}

TEST(SystemPublishSm, TheEmptyPathIsAKeyLikeAnyOther) {
  Publishing p;
  p.start({MountDesc{"", "/remote", "", "rt", "topology"}});
  EXPECT_THAT(p.published(), ElementsAre("topology", "topology: - /remote - rt topology"));
  TraceCapture text({5});
  p.offer->publishedMountDel("");
  EXPECT_THAT(p.published(), ElementsAre("topology"));
  EXPECT_THAT(text.lines(), ElementsAre("5 39 handlePublishedMount withdrawing: "));
}

TEST(SystemPublishSm, AnOfferedDefaultDescriptorIsNoMount) {
  Publishing p;
  p.start({mountOf("topology", "")});
  EXPECT_EQ(p.firstHolding(""), "topology");
  p.offer->publishedMountIs(MountDesc());
  EXPECT_EQ(p.firstHolding(""), "nobody");
}

TEST(SystemPublishSm, APublishedDefaultDescriptorIsNeverWithdrawn) {
  Publishing p;
  p.start({MountDesc{"", "", "", "ro", ""}});  // told from the default by its mode alone, which is not published
  EXPECT_THAT(p.published(), ElementsAre("", ": - - - rt -"));
  TraceCapture text({5});
  p.offer->publishedMountDel("");
  p.sm->handlePublishedMount();
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_THAT(p.published(), ElementsAre("", ": - - - rt -"));
}

}  // namespace
}  // namespace SystemPublishSmTest
