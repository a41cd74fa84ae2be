// The publication machine of one switch: which changes of its inputs it follows, and their life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "publication_support.h"
#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace SystemPublishSmInputsTest {
namespace {

using namespace Publication;
using Controller::PublishedMountsTable;
using Controller::SystemPublishedMount;
using Controllerdb::SystemPublishSm;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST(SystemPublishSmInputs, TheImmediateFormRunsNoPass) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  TraceCapture text({5, 8});
  p.offer->announce<Nox::unkeyed(&SystemPublishedMount::NotifieeConst::onPublishedMountnoxImmediate)>();
  p.offer->announce<Nox::unkeyed(&SystemPublishedMount::NotifieeConst::onPublishedMount)>();
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SystemPublishSmInputs, AChangeOfReadinessIsNotFollowed) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  WriteLog log;
  p.table->servicePublishReadyIs("topology", true);
  EXPECT_THAT(log.lines(), ElementsAre("publishedMounts.servicePublishReady[topology] = 1"));
}

TEST(SystemPublishSmInputs, PublishesWithoutBeingSwitchedOn) {
  Publishing p;
  p.start({});
  EXPECT_FALSE(p.sm->hasNotificationActive());
  p.offer->publishedMountIs(mountOf("topology", "a"));
  EXPECT_EQ(p.firstHolding("a"), "topology");
}

TEST(SystemPublishSmInputs, TheMutatorOfTheOfferPointsItsReactorElsewhereAndRunsNoPass) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  auto const reactor = onlyReactor<SystemPublishSm::NoxSystemPublishedMount>(*p.offer);
  auto const other = Nox::make<SystemPublishedMount>(systemId(1));
  other->publishedMountIs(mountOf("topology", "b"));
  TraceCapture text({5, 8});
  WriteLog log;
  p.sm->systemPublishedMountIs(p.offer);
  p.sm->systemPublishedMountIs(other);
  EXPECT_EQ(onlyReactor<SystemPublishSm::NoxSystemPublishedMount>(*other), reactor);
  p.offer->publishedMountIs(mountOf("topology", "c"));
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_THAT(log.linesWith("topology."), IsEmpty());
  other->publishedMountIs(mountOf("topology", "d"));
  EXPECT_THAT(
      p.published(),
      UnorderedElementsAre("topology", "topology: a /state/a - rt topology", "topology: d /state/d - rt topology"));
  EXPECT_EQ(p.sm->systemPublishedMount(), other);
}

TEST(SystemPublishSmInputs, TheMutatorOfTheTablePointsItsReactorElsewhereAndRunsNoPass) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  auto const reactor = onlyReactor<SystemPublishSm::NoxPublishedMountsTable>(*p.table);
  auto const other = Nox::make<PublishedMountsTable>("other");
  other->servicePublishReadyIs("topology", true);
  TraceCapture text({5, 8});
  p.sm->publishedMountsTableIs(other);
  EXPECT_EQ(onlyReactor<SystemPublishSm::NoxPublishedMountsTable>(*other), reactor);
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_FALSE(p.status->servicePublishedInfo("topology")->ready());
  p.sm->handlePublishedMount("a");
  EXPECT_TRUE(p.status->servicePublishedInfo("topology")->ready());
}

TEST(SystemPublishSmInputs, ARemovedInputComesBackWithAFreshReactor) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  auto const reactor = onlyReactor<SystemPublishSm::NoxSystemPublishedMount>(*p.offer);
  p.sm->systemPublishedMountDel();
  p.sm->publishedMountsTableDel();
  p.sm->publishedMountsTableDel();
  EXPECT_EQ(p.sm->systemPublishedMount(), nullptr);
  EXPECT_EQ(p.sm->publishedMountsTable(), nullptr);
  EXPECT_TRUE(reactor->noxMarkedForDeletion());
  p.offer->publishedMountIs(mountOf("topology", "b"));
  EXPECT_EQ(p.firstHolding("b"), "nobody");
  p.sm->systemPublishedMountIs(p.offer);
  p.offer->publishedMountIs(mountOf("topology", "c"));
  EXPECT_EQ(p.firstHolding("c"), "topology");
  EXPECT_EQ(p.firstHolding("b"), "nobody");
}

TEST(SystemPublishSmInputs, ItsEndMakesItsReactorsZombiesThatKnowNoMachineAndWithdrawsNothing) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  auto const onOffer = onlyReactor<SystemPublishSm::NoxSystemPublishedMount>(*p.offer);
  auto const onTable = onlyReactor<SystemPublishSm::NoxPublishedMountsTable>(*p.table);
  WriteLog log;
  p.sm = nullptr;
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_TRUE(onOffer->noxMarkedForDeletion());
  EXPECT_FALSE(onOffer->hasNotificationActive());
  EXPECT_TRUE(onTable->noxMarkedForDeletion());
  EXPECT_FALSE(onTable->hasNotificationActive());
  onOffer->onPublishedMount("a");
  onOffer->noxDoZombieReactors(false);
  p.offer->publishedMountDel("a");
  EXPECT_EQ(p.firstHolding("a"), "topology");
}

TEST(SystemPublishSmInputs, AZombieMachineHearsNothingUntilItIsBroughtBack) {
  Publishing p;
  p.start({mountOf("topology", "a")});
  p.sm->noxDoZombieReactors(true);
  p.offer->publishedMountIs(mountOf("topology", "b"));
  EXPECT_EQ(p.firstHolding("b"), "nobody");
  p.sm->noxDoZombieReactors(false);
  p.offer->publishedMountIs(mountOf("topology", "c"));
  EXPECT_EQ(p.firstHolding("c"), "topology");
}

TEST(SystemPublishSmInputs, AReactorOfOnesOwnWorksOnceItKnowsTheMachine) {
  Publishing p;
  p.start({});
  auto const other = Nox::make<SystemPublishedMount>(systemId(2));
  auto const reactor = p.sm->newSystemPublishedMount(other);
  p.offer->publishedMountIs(mountOf("topology", "a"));
  TraceCapture text({5});
  reactor->onPublishedMount("a");
  reactor->systemPublishSmIs(nullptr);
  reactor->onPublishedMount("a");
  EXPECT_THAT(text.lines(), ElementsAre("5 23 handlePublishedMount publishing: a"));
}

}  // namespace
}  // namespace SystemPublishSmInputsTest
