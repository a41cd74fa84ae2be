// Directories: every mutator, what it announces, and which is the parent of which afterwards.
#include "framework/core/dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/dir_world.h"
#include "support/sample.h"
#include "support/write_log.h"

namespace DirTest {
namespace {

using Nox::Dir;
using Nox::Entity;
using Nox::Name;
using Nox::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

class DirTest : public Test::DirWorld {};

TEST_F(DirTest, AnEmptyDirectoryHasNothingOfAnyName) {
  EXPECT_EQ(dir->entry("x"), nullptr);
  EXPECT_EQ(dir->entityRef("x"), nullptr);
  EXPECT_EQ(dir->entityPtr("x"), nullptr);
  EXPECT_EQ(dir->entity<Dir>("x"), nullptr);
  EXPECT_FALSE(dir->entryIterator());
  EXPECT_FALSE(dir->entityPtrIteratorConst());
  EXPECT_EQ(Dir::_fwkType().name, "Nox::Dir");
  EXPECT_EQ(&dir->fwkType(), &Dir::_fwkType());
}

TEST_F(DirTest, AnEntityIsEnteredReferredToAndPointedAtInThisOrder) {
  dir->entityIs("one", one);
  EXPECT_THAT(heard(), ElementsAre("entryState one", "entry one", "entityRef one", "entityPtr one"));
  EXPECT_EQ(dir->entityRef("one"), one);
  EXPECT_EQ(dir->entityPtr("one"), one);
  EXPECT_EQ(dir->entry("one")->entityRef(), one);
  EXPECT_EQ(one->parent(), dir);
  dir->entityIs("one", one);
  EXPECT_THAT(heard(), IsEmpty()) << "the same entity again changes nothing";
}

TEST_F(DirTest, HandlersFindTheDirectoryComplete) {
  class Looking : public Dir::NotifieeConst {
   public:
    explicit Looking(Dir const& d) : dir_(d) {}
    void onEntry(Name name) override {
      ++calls;
      EXPECT_TRUE(dir_.entityRef(name));
      EXPECT_TRUE(dir_.entityPtr(name));
    }
    int calls = 0;

   private:
    Dir const& dir_;
  };
  auto const looking = Nox::make<Looking>(*dir);
  looking->notifierIs(dir);
  dir->entityIs("one", one);
  EXPECT_EQ(looking->calls, 1);
}

TEST_F(DirTest, AnEntityWithAParentKeepsIt) {
  auto const other = Nox::make<Dir>("other");
  other->entityIs("one", one);
  dir->entityIs("one", one);
  EXPECT_EQ(one->parent(), other);
  dir->entityDel("one");
  EXPECT_EQ(one->parent(), other) << "nor does a directory take a parent that it did not give";
}

TEST_F(DirTest, APreparedEntryRefersToNothingAndIsNotMadeAnew) {
  dir->entryIs("x");
  EXPECT_THAT(heard(), ElementsAre("entryState x", "entry x"));
  Ptr<Dir::Entry> const entry = dir->entry("x");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name(), "x");
  EXPECT_EQ(entry->entityRef(), nullptr);
  dir->entryIs("x");
  EXPECT_THAT(heard(), IsEmpty());
  dir->entityIs("x", one);
  EXPECT_THAT(heard(), ElementsAre("entityRef x", "entityPtr x"));
  dir->entryIs("x");
  EXPECT_EQ(dir->entry("x"), entry);
  EXPECT_EQ(dir->entityRef("x"), one);
}

TEST_F(DirTest, AnEntityPointerWithoutAnEntryIsAnnouncedButNotInstantiated) {
  dir->entityPtrIs("x", one);
  dir->entityPtrIs("x", one);
  EXPECT_THAT(heard(), ElementsAre("entityPtr x"));
  EXPECT_EQ(dir->entityPtr("x"), one);
  EXPECT_EQ(dir->entityRef("x"), nullptr);
  EXPECT_EQ(dir->entity<Entity>("x"), nullptr) << "typed look-ups use the entry";
  EXPECT_EQ(one->parent(), nullptr);
  dir->entityPtrIs("x", two);
  EXPECT_THAT(heard(), ElementsAre("entityPtr x"));
  EXPECT_EQ(dir->entityPtr("x"), two);
}

TEST_F(DirTest, AnotherEntityUnderANameReplacesTheFirstWhichLosesItsParent) {
  dir->entityIs("x", one);
  heard();
  dir->entityIs("x", two);
  EXPECT_THAT(heard(), ElementsAre("entityRef x", "entityPtr x"));
  EXPECT_EQ(dir->entityRef("x"), two);
  EXPECT_EQ(dir->entityPtr("x"), two);
  EXPECT_EQ(two->parent(), dir);
  EXPECT_EQ(one->parent(), nullptr);
}

TEST_F(DirTest, NewEntityMakesAChildOfARegisteredTypeAndFindsItASecondTime) {
  Nox::ValidPtr<Entity> const child = dir->newEntity("sub", "Nox::Dir");
  EXPECT_EQ(&child->fwkType(), &Dir::noxType);
  EXPECT_EQ(child->name(), "sub");
  EXPECT_EQ(child->parent(), dir);
  EXPECT_EQ(dir->entity<Dir>("sub"), child);
  EXPECT_THAT(heard(), ElementsAre("entryState sub", "entry sub", "entityRef sub", "entityPtr sub"));
  Ptr<Dir::Entry> const entry = dir->entry("sub");
  EXPECT_EQ(dir->newEntity("sub", "Nox::Dir"), child);
  EXPECT_EQ(dir->entry("sub"), entry);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(DirTest, NewEntityFillsAPreparedEntryAndLeavesAPresentEntityAlone) {
  dir->entryIs("x");
  Ptr<Dir::Entry> const entry = dir->entry("x");
  auto const made = dir->newEntity("x", "Nox::Dir");
  EXPECT_EQ(dir->entry("x"), entry);
  EXPECT_EQ(entry->entityRef(), made);
  dir->entityIs("y", one);
  EXPECT_EQ(dir->newEntity("y", "Nox::Dir"), one) << "of whatever class";
}

TEST_F(DirTest, NewEntityOfATypeThatNobodyRegisteredIsRefused) {
  for (char const* type : {"Nox::Unknown", ""}) {
    try {
      dir->newEntity("x", type);
      ADD_FAILURE() << "made a " << type;
    } catch (Nox::RangeException const& e) {
      EXPECT_EQ(e.what(), std::string(type) + " is not a type that can be made by name");
    }
  }
  EXPECT_EQ(dir->entry("x"), nullptr);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(DirTest, TypedLookUpGivesNullForAnEntityOfAnotherClass) {
  dir->entityIs("one", one);
  dir->newEntity("sub", "Nox::Dir");
  EXPECT_EQ(dir->entity<Dir>("one"), nullptr);
  EXPECT_EQ(dir->entity<Entity>("one"), one);
  EXPECT_TRUE(dir->entity<Dir>("sub"));
}

TEST_F(DirTest, EntriesAndPointersIterateInOneOrder) {
  std::vector<Name> entries, pointers;
  for (int i = 0; i < 50; ++i) dir->entityIs("n" + std::to_string(i), Nox::make<Entity>("e"));
  for (auto at = dir->entryIterator(); at; ++at) entries.push_back(at->name());
  for (auto at = dir->entityPtrIteratorConst(); at; ++at) pointers.push_back(at->fwkKey());
  EXPECT_EQ(entries.size(), 50U);
  EXPECT_EQ(entries, pointers);
}

TEST_F(DirTest, EveryEntryMayBeRemovedUnderAWalk) {
  for (int i = 0; i < 50; ++i) dir->entityIs("n" + std::to_string(i), Nox::make<Entity>("e"));
  int visited = 0;
  for (auto at = dir->entryIterator(); at; ++at) {
    ++visited;
    dir->entityDel(Name(at->name()));
  }
  EXPECT_EQ(visited, 50);
  EXPECT_TRUE(dir->entries().empty());
  EXPECT_TRUE(dir->entityPtrs().empty());
}

TEST_F(DirTest, ChildrenThatOutliveTheDirectoryHaveNoParent) {
  auto const other = Nox::make<Dir>("other");
  other->entityIs("two", two);
  dir->entityIs("one", one);
  dir->entityIs("two", two);
  Ptr<Entity> const sub = dir->newEntity("sub", "Nox::Dir");
  listener->notifierIs(nullptr);
  dir = nullptr;
  EXPECT_EQ(one->parent(), nullptr);
  EXPECT_EQ(sub->parent(), nullptr);
  EXPECT_EQ(two->parent(), other);
  EXPECT_EQ(sub->fullName(), "sub");
}

TEST_F(DirTest, AHandlerMayReleaseTheDirectoryThatAnnounces) {
  class Ending : public Dir::NotifieeConst {
   public:
    explicit Ending(Ptr<Dir>& d) : dir_(d) {}
    void onEntry(Name /*name*/) override {
      dir_ = nullptr;
      notifierIs(nullptr);
    }

   private:
    Ptr<Dir>& dir_;
  };
  dir->entityIs("one", one);
  listener->notifierIs(nullptr);
  auto const ending = Nox::make<Ending>(dir);
  ending->notifierIs(dir);
  dir->entityDel("one");
  EXPECT_EQ(dir, nullptr);
}

TEST_F(DirTest, TheEntriesOfADeletedAndReturnedNameAreTwoFacts) {
  dir->entityIs("x", one);
  heard();
  {
    Nox::Turn turn;
    dir->entityDel("x");
    dir->entityIs("x", two);
  }
  EXPECT_THAT(heard(),
              ElementsAre("entityPtr x",
                          "entityRef x",
                          "entryState x",
                          "entry x",
                          "entryState x",
                          "entry x",
                          "entityRef x",
                          "entityPtr x"));
}

TEST_F(DirTest, AHostAnnouncesTheOtherOperations) {
  using N = Dir::NotifieeConst;
  dir->announce<Nox::keyed(&N::onSubdir)>("s");
  dir->announce<&N::onSubdirnoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onSubdir)>();
  dir->announce<&N::onMountImmediate>();
  dir->announce<&N::onEntryStatenoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onEntryState)>();
  dir->announce<Nox::keyed(&N::onCompatibilityEntryState)>("s");
  dir->announce<&N::onCompatibilityEntryStatenoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onCompatibilityEntryState)>();
  dir->announce<&N::onEntrynoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onEntry)>();
  dir->announce<Nox::keyed(&N::onCompatibilityEntry)>("s");
  dir->announce<&N::onCompatibilityEntrynoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onCompatibilityEntry)>();
  dir->announce<&N::onEntityRefnoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onEntityRef)>();
  dir->announce<&N::onMountFlags>();
  dir->announce<&N::onGlobalDir>();
  dir->announce<&N::onEntityPtrnoxImmediate>();
  dir->announce<Nox::unkeyed(&N::onEntityPtr)>();
  dir->announce<&N::onVersion>();
  EXPECT_THAT(heard(),
              ElementsAre("subdir s",
                          "subdir immediate",
                          "subdir",
                          "mount immediate",
                          "entryState immediate",
                          "entryState",
                          "compatibilityEntryState s",
                          "compatibilityEntryState immediate",
                          "compatibilityEntryState",
                          "entry immediate",
                          "entry",
                          "compatibilityEntry s",
                          "compatibilityEntry immediate",
                          "compatibilityEntry",
                          "entityRef immediate",
                          "entityRef",
                          "mountFlags",
                          "globalDir",
                          "entityPtr immediate",
                          "entityPtr",
                          "version"));
}

TEST_F(DirTest, WritesAreLogged) {
  WriteLog writes;
  dir->entityIs("x", one);
  dir->entityIs("x", one);
  dir->entityDel("x");
  dir->entityDel("x");
  EXPECT_THAT(writes.lines(),
              ElementsAre("dir.entry[x] = {}",
                          "dir.entityRef[x] = one",
                          "dir.entityPtr[x] = dir/one",
                          "dir.entry[x] = {} (equal)",
                          "dir.entityRef[x] = dir/one (equal)",
                          "dir.entityPtr[x] = dir/one (equal)",
                          "dir.entityPtr[x] deleted",
                          "dir.entityRef[x] deleted",
                          "dir.entry[x] deleted",
                          "dir.entityPtr[x] deleted (absent)",
                          "dir.entityRef[x] deleted (absent)",
                          "dir.entry[x] deleted (absent)"));
}

}  // namespace
}  // namespace DirTest
