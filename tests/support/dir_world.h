// A directory, and what it tells its reactors.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "framework/core/dir.h"
#include "support/sample.h"

namespace Test {

/// Writes down every operation of a directory's interface by which it is called.
class Listener : public Nox::Dir::NotifieeConst {
 public:
  explicit Listener(Sample::Log& log) : log_(log) {}
  void onParent() override { heard("parent"); }
  void onVersion() override { heard("version"); }
  void onIsNondestructing() override { heard("isNondestructing"); }
  void onSubdir(Nox::Name n) override { heard("subdir", n); }
  void onSubdirnoxImmediate() override { heard("subdir immediate"); }
  void onSubdir() override { heard("subdir"); }
  void onMountImmediate() override { heard("mount immediate"); }
  void onEntryState(Nox::Name n) override { heard("entryState", n); }
  void onEntryStatenoxImmediate() override { heard("entryState immediate"); }
  void onEntryState() override { heard("entryState"); }
  void onCompatibilityEntryState(Nox::Name n) override { heard("compatibilityEntryState", n); }
  void onCompatibilityEntryStatenoxImmediate() override { heard("compatibilityEntryState immediate"); }
  void onCompatibilityEntryState() override { heard("compatibilityEntryState"); }
  void onEntry(Nox::Name n) override { heard("entry", n); }
  void onEntrynoxImmediate() override { heard("entry immediate"); }
  void onEntry() override { heard("entry"); }
  void onCompatibilityEntry(Nox::Name n) override { heard("compatibilityEntry", n); }
  void onCompatibilityEntrynoxImmediate() override { heard("compatibilityEntry immediate"); }
  void onCompatibilityEntry() override { heard("compatibilityEntry"); }
  void onEntityPtr(Nox::Name n) override { heard("entityPtr", n); }
  void onEntityRef(Nox::Name n) override { heard("entityRef", n); }
  void onEntityRefnoxImmediate() override { heard("entityRef immediate"); }
  void onEntityRef() override { heard("entityRef"); }
  void onMountFlags() override { heard("mountFlags"); }
  void onGlobalDir() override { heard("globalDir"); }
  void onEntityPtrnoxImmediate() override { heard("entityPtr immediate"); }
  void onEntityPtr() override { heard("entityPtr"); }

 private:
  void heard(std::string what) { log_.push_back(std::move(what)); }
  void heard(std::string const& what, Nox::Name const& name) { log_.push_back(what + " " + std::string(name.view())); }
  Sample::Log& log_;
};

/// A directory with a listener, and two entities for it.
class DirWorld : public testing::Test {
 protected:
  DirWorld() { listener->notifierIs(dir); }
  Sample::Log heard() { return std::exchange(log, {}); }

  Sample::Log log;
  Nox::Ptr<Nox::Dir> dir = Nox::make<Nox::Dir>("dir");
  Nox::Ptr<Listener> listener = Nox::make<Listener>(log);
  Nox::Ptr<Nox::Entity> one = Nox::make<Nox::Entity>("one");
  Nox::Ptr<Nox::Entity> two = Nox::make<Nox::Entity>("two");
};

}  // namespace Test
