// A small state machine that writes down what is done to it, for tests of the framework.
#pragma once

#include <functional>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "framework/core/dir.h"
#include "framework/core/state_machine.h"
#include "support/sample.h"

namespace Sample {

using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;

/// What all machines of this kind and their reactors have done.
inline Log theLog;
/// The log, which is empty then.
inline Log heard() { return std::exchange(theLog, {}); }

/// A machine that watches a device, a directory, and in a collection any number of further devices; with child machines
/// of its own class. All of them write down what is done to them.
class LinkSm : public Nox::StateMachine<LinkSm>, public Nox::HashMapLink, Counted {
 public:
  static Nox::NoxType noxType;

  /// A reactor that writes down how it is switched.
  template <class In>
  class Switched : public Nox::Reactor<LinkSm, In> {
   public:
    Switched(Ptr<In> const& input, LinkSm* sm, char const* name)
        : Nox::Reactor<LinkSm, In>(input, sm), name_(sm->name() + name) {}
    void hasNotificationActiveIs(bool on) override {
      theLog.push_back(name_ + (on ? " on" : " off"));
      Nox::Reactor<LinkSm, In>::hasNotificationActiveIs(on);
      if (on && then) then();
    }
    void noxDoZombieReactors(bool zombie) override {
      if (zombie) theLog.push_back(name_ + " zombie");
      Nox::Reactor<LinkSm, In>::noxDoZombieReactors(zombie);
    }
    std::function<void()> then;  // what happens when it is switched on

   protected:
    std::string name_;
  };
  class NoxDevice : public Switched<Device const> {
   public:
    NoxDevice(Ptr<Device const> const& input, LinkSm* sm) : Switched(input, sm, ".device") {}
    void onSpeed() override {
      if (auto sm = live()) sm->handleDevice();
    }

   protected:
    void handleNotifier(LinkSm& sm) override { sm.handleDevice(); }
  };
  class NoxDir : public Switched<Dir> {
   public:
    NoxDir(Ptr<Dir> const& input, LinkSm* sm) : Switched(input, sm, ".dir") {}
    void onEntry(Name name) override {
      if (auto sm = live()) sm->handleDir(name);
    }
  };
  class NoxPort : public Switched<Device const>, public Nox::HashMapLink {
   public:
    NoxPort(Ptr<Device const> const& input, LinkSm* sm)
        : Switched(input, sm, ("." + std::string(input->name().view())).c_str()), key_(input->name()) {}
    Name const& fwkKey() const { return key_; }
    void onSpeed() override {
      if (auto sm = live()) sm->handlePort(key_);
    }

   private:
    Name key_;
  };

  LinkSm(std::string name, Ptr<Device const> const& deviceInput, Ptr<Dir> const& dirInput)
      : name_(std::move(name)), key_(name_), args_(deviceInput, dirInput) {
    Inputs::start(*this, deviceInput, dirInput);
    handleInitialized();
  }
  ~LinkSm() override {
    hasNotificationActiveIs(false);
    orphanReactors();
    theLog.push_back(name_ + " gone");
  }

  std::string const& name() const { return name_; }
  Name const& fwkKey() const { return key_; }
  std::tuple<Ptr<Device const>, Ptr<Dir>> const& constructorArgs() const { return args_; }

  void handleInitialized() {
    if (initialized()) return;
    initializedIs(true);
    handleDevice();
  }
  void handleDevice() { handled(" device"); }
  void handleDir(Name const& entry) { handled(" dir " + std::string(entry.view())); }
  void handlePort(Name const& port) { handled(" port " + std::string(port.view())); }

  Nox::Input<NoxDevice>& device() { return device_; }
  Nox::Input<NoxDir>& dir() { return dir_; }
  void replaceDevice(Ptr<Device const> const& input) { device_.replace(*this, input); }
  void repointDevice(Ptr<Device const> const& input) { device_.repoint(*this, input); }
  void portIs(Ptr<Device const> const& input) { port_.newMember(newReactor<NoxPort>(input)); }
  Nox::HashMap<NoxPort, Name>& ports() { return port_; }
  ValidPtr<LinkSm> childIs(std::string const& name, Ptr<Device const> const& input) {
    ValidPtr<LinkSm> child = Nox::make<LinkSm>(name, input, nullptr);
    child_.newMember(child);
    return child;
  }
  Nox::HashMap<LinkSm, Name>& children() { return child_; }

  std::function<void()> then;

 private:
  friend class Nox::StateMachine<LinkSm>;
  auto reactors() { return std::tie(device_, dir_, port_); }
  auto childSms() { return std::tie(child_); }

  ValidPtr<NoxDevice> newDevice(Ptr<Device const> const& input) { return newReactor<NoxDevice>(input); }
  ValidPtr<NoxDir> newDir(Ptr<Dir> const& input) { return newReactor<NoxDir>(input); }
  void handled(std::string const& what) {
    theLog.push_back(name_ + what);
    if (then) then();
    theLog.push_back(name_ + what + " done");
  }

  std::string name_;
  Name key_;
  std::tuple<Ptr<Device const>, Ptr<Dir>> args_;
  Nox::Input<NoxDevice> device_;
  Nox::Input<NoxDir> dir_;
  Nox::HashMap<NoxPort, Name> port_;
  Nox::HashMap<LinkSm, Name> child_;

 public:
  using Inputs = Nox::Inputs<&LinkSm::device_, &LinkSm::dir_>;
};
inline constinit Nox::NoxType LinkSm::noxType{"Sample::LinkSm", nullptr, nullptr};

/// A machine, its inputs, and an input that it does not have yet.
class LinkSmTest : public testing::Test {
 protected:
  LinkSmTest() { heard(); }
  void TearDown() override {
    sm = nullptr;
    device = other = nullptr;
    EXPECT_EQ(Counted::alive, 0);
  }
  void write(Ptr<Device> const& d) { d->speedIs(d->speed() + 1); }

  Ptr<Device> device = Nox::make<Device>("device");
  Ptr<Device> other = Nox::make<Device>("other");
  Ptr<Dir> dir = Nox::make<Dir>("dir");
  Ptr<LinkSm> sm = Nox::make<LinkSm>("sm", device, dir);
};

}  // namespace Sample
