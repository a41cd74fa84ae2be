// Directories: what each removal takes with it, in which order, and what it announces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "support/dir_world.h"
#include "support/sample.h"

namespace DirRemovalTest {
namespace {

using Nox::Dir;
using Nox::Entity;
using Nox::Name;
using Nox::Ptr;
using Sample::Log;
using testing::ElementsAre;
using testing::IsEmpty;

class DirRemoval : public Test::DirWorld {};

TEST_F(DirRemoval, RemovingAnEntityRemovesPointerReferenceAndEntryInThisOrder) {
  dir->entityIs("one", one);
  heard();
  dir->entityDel("one");
  EXPECT_THAT(heard(), ElementsAre("entityPtr one", "entityRef one", "entryState one", "entry one"));
  EXPECT_EQ(dir->entry("one"), nullptr);
  EXPECT_EQ(dir->entityPtr("one"), nullptr);
  EXPECT_EQ(one->parent(), nullptr);
  EXPECT_EQ(one->noxWord(), 1U);
  dir->entityDel("one");
  EXPECT_THAT(heard(), IsEmpty()) << "what is absent is not removed";
}

TEST_F(DirRemoval, RemovalsTakeTheNameOfTheVeryRowOrEntityThatGoes) {
  using Removal = void (Dir::*)(Name const&);
  struct {
    Removal remove;
    Log heard;
  } const removals[] = {
      {&Dir::entityDel, {"entityPtr leaf", "entityRef leaf", "entryState leaf", "entry leaf"}},
      {&Dir::entryDel, {"entityRef leaf", "entryState leaf", "entry leaf"}},
      {&Dir::entityRefDel, {"entityRef leaf"}},
      {&Dir::entityPtrDel, {"entityPtr leaf"}},
  };
  std::function<Name const&()> const names[] = {
      [&]() -> Name const& { return dir->entityPtrs().find("leaf")->fwkKey(); },
      [&]() -> Name const& { return dir->entries().find("leaf")->name(); },
      [&]() -> Name const& { return dir->entries().find("leaf")->entityRef()->rawName(); }};
  for (auto const& [remove, expected] : removals)
    for (auto const& name : names) {
      // Names with buffers of their own: code that reads one that has gone finds something else.
      dir->entryIs(std::string("leaf"));
      dir->entityIs(std::string("leaf"), Nox::make<Entity>(std::string("leaf")));
      heard();
      (dir.get()->*remove)(name());
      EXPECT_EQ(heard(), expected);
      dir->entityDel("leaf");
    }
}

TEST_F(DirRemoval, AReplacementTakesTheNameOfTheEntityThatGoes) {
  for (bool const isWhole : {true, false}) {
    dir->entityIs(std::string("leaf"), Nox::make<Entity>(std::string("leaf")));
    if (isWhole)
      dir->entityPtrDel("leaf");
    else
      dir->entityRefDel("leaf");
    heard();
    Name const& name = isWhole ? dir->entityRef("leaf")->rawName() : dir->entityPtr("leaf")->rawName();
    if (isWhole) {
      dir->entityIs(name, one);
      EXPECT_THAT(heard(), ElementsAre("entityRef leaf", "entityPtr leaf"));
    } else {
      dir->entityPtrIs(name, one);
      EXPECT_THAT(heard(), ElementsAre("entityPtr leaf"));
    }
    dir->entityDel("leaf");
  }
}

TEST_F(DirRemoval, TheThreeRemovalsOneByOne) {
  dir->entityIs("one", one);
  heard();
  dir->entityPtrDel("one");
  EXPECT_THAT(heard(), ElementsAre("entityPtr one"));
  EXPECT_EQ(dir->entityPtr("one"), nullptr);
  EXPECT_EQ(dir->entityRef("one"), one);
  EXPECT_EQ(one->parent(), dir);

  Ptr<Dir::Entry> const entry = dir->entry("one");
  dir->entityRefDel("one");
  EXPECT_THAT(heard(), ElementsAre("entityRef one"));
  EXPECT_EQ(dir->entityRef("one"), nullptr);
  EXPECT_EQ(dir->entry("one"), entry) << "the entry stays, empty";
  EXPECT_EQ(one->parent(), nullptr);

  dir->entryDel("one");
  EXPECT_THAT(heard(), ElementsAre("entryState one", "entry one"));
  EXPECT_EQ(dir->entry("one"), nullptr);

  dir->entityPtrDel("one");
  dir->entityRefDel("one");
  dir->entryDel("one");
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(DirRemoval, RemovingAnEntryRemovesWhatItRefersTo) {
  dir->entityIs("one", one);
  heard();
  dir->entryDel("one");
  EXPECT_THAT(heard(), ElementsAre("entityRef one", "entryState one", "entry one"));
  EXPECT_EQ(one->parent(), nullptr);
  EXPECT_EQ(dir->entityPtr("one"), one);
}

TEST_F(DirRemoval, ARemovedEntryIsAliveWhileItsStateIsAnnounced) {
  dir->entryIs("x");
  Dir::EntryStateIterator at(*dir, "x");
  heard();
  at.deleteNotify(at.member());
  EXPECT_THAT(heard(), ElementsAre("entryState x"));
}

}  // namespace
}  // namespace DirRemovalTest
