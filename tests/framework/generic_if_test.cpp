// Operations by name on a class of this test's own: what each kind of row does, and what is refused.
#include "framework/by_name/generic_if.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "framework/by_name/attr_table.h"
#include "framework/core/entity.h"

namespace Sample {

using Nox::GenericIf;
using Nox::GenericIfEntity;
using Nox::Name;
using Nox::Ptr;
using testing::ElementsAre;
using Op = GenericIf::Op;
using Value = GenericIf::Value;

class Port final : public Nox::Typed<Port, Nox::Entity>, public Nox::HashMapLink {
 public:
  static Nox::NoxType noxType;
  using Typed::Typed;
  Name fwkKey() const { return name(); }
};
constinit Nox::NoxType Port::noxType{"Sample::Port", &Nox::Entity::noxType};

/// One attribute of each kind.
class Chassis final : public Nox::Typed<Chassis, Nox::Entity> {
 public:
  using PortMap = Nox::HashMap<Port, Name>;
  static Nox::NoxType noxType;
  using Typed::Typed;

  bool isOn() const noexcept { return isOn_; }
  void isOnIs(bool on) { isOn_ = on; }
  unsigned slots() const { return slots_; }
  void slotsIs(unsigned slots) { slots_ = slots; }
  Nox::Seconds timeout() const { return timeout_; }
  void timeoutIs(Nox::Seconds timeout) { timeout_ = timeout; }
  Nox::String8 const& label() const { return label_; }
  void labelIs(Nox::String8 const& label) { label_ = label; }
  Ptr<Port> const& uplink() const { return uplink_; }
  void uplinkIs(Ptr<Port> const& port) { uplink_ = port; }
  void uplinkDel() { uplink_ = nullptr; }
  Ptr<Port const> const& mirror() const { return mirror_; }
  void mirrorIs(Ptr<Port const> const& port) { mirror_ = port; }
  Ptr<Port> const& console() const { return console_; }
  Nox::ValidPtr<Port> consoleIs(Name const& name) {
    return console_ ? Nox::ValidPtr<Port>(console_) : newConsole(name);
  }
  Nox::ValidPtr<Port> newConsole(Name const& name) {
    console_ = Nox::make<Port>(name);
    return console_;
  }
  Ptr<Port> consoleDel() { return std::exchange(console_, nullptr); }
  PortMap const& port() const { return ports_; }
  Ptr<Port> port(Name const& name) const { return ports_.member(name); }
  void portIs(Ptr<Port> const& port) { ports_.newMember(port); }
  void portDel(Name const& name) { ports_.memberDel(name); }
  void portDelAll() { ports_.deleteAll(); }
  void handleAll() { calls.emplace_back("all"); }
  void handleOne(Name name) { calls.emplace_back(name.view()); }
  void handleNames(std::vector<Name> const& names) {
    for (Name const& name : names) handleOne(name);
  }
  void fail() { throw Nox::NameInUseException("taken"); }
  void failHalfway() {
    isNondestructingIs(true);
    fail();
  }
  bool isHidden() const { return true; }

  /// Everything that an operation could change.
  std::string state() const {
    std::ostringstream text;
    text << isOn_ << slots_ << timeout_ << label_ << uplink_ << mirror_ << console_ << ports_.members() << calls.size();
    return text.str();
  }

  std::vector<std::string> calls;

 private:
  bool isOn_ = false;
  unsigned slots_ = 4;
  Nox::Seconds timeout_ = 0;
  Nox::String8 label_;
  Ptr<Port> uplink_;
  Ptr<Port const> mirror_;
  Ptr<Port> console_;
  PortMap ports_;
};

constexpr auto kChassis = [] {
  using T = Chassis;
  return Nox::attrTable(256,
                        Nox::plain<&T::isOn, &T::isOnIs>("isOn"),
                        Nox::plain<&T::slots, &T::slotsIs>("slots"),
                        Nox::plain<&T::timeout, &T::timeoutIs>("timeout"),
                        Nox::plain<&T::label, &T::labelIs>("label"),
                        Nox::plain<&T::uplink, &T::uplinkIs, &T::uplinkDel>("uplink"),
                        Nox::plain<&T::mirror, &T::mirrorIs>("mirror"),
                        Nox::child<&T::console, &T::consoleIs, &T::newConsole, &T::consoleDel>("console", "name"),
                        Nox::collection<Nox::whole(&T::port), &T::portIs, &T::portDel>("port"),
                        Nox::handler<&T::handleOne, &T::handleAll>("handle", "name"),
                        Nox::handler<&T::handleNames>("handleNames", "names"),
                        Nox::handler<&T::fail>("fail"),
                        Nox::unlisted(Nox::plain<&T::isHidden>("isHidden")),
                        Nox::unlisted(Nox::handler<&T::failHalfway>("failHalfway")));
}();
constinit Nox::NoxType Chassis::noxType{"Sample::Chassis", &Nox::Entity::noxType, nullptr, kChassis.view()};

}  // namespace Sample

namespace GenericIfTest {
namespace {

using namespace Sample;

struct GenericIfTest : testing::Test {
  Ptr<Chassis> const chassis = Nox::make<Chassis>("spine");
  Ptr<Port> const port = Nox::make<Port>("eth1");
  GenericIfEntity const byName{Ptr<Nox::Entity>(chassis)};
};

TEST_F(GenericIfTest, ReadsAndSetsValuesOfEveryType) {
  byName.attributeOp("isOn", Op::kSet, {true});
  byName.attributeOp("slots", Op::kSet, {48U});
  byName.attributeOp("timeout", Op::kSet, {1.5});
  byName.attributeOp("label", Op::kSet, {"rack 7"});
  byName.attributeOp("uplink", Op::kSet, {port});
  byName.attributeOp("mirror", Op::kSet, {port});
  EXPECT_TRUE(byName.attributeOp("isOn", Op::kRead).as<bool>());
  EXPECT_EQ(byName.attributeOp("slots", Op::kRead), Value(48U));
  EXPECT_EQ(byName.attributeOp("timeout", Op::kRead), Value(1.5));
  EXPECT_EQ(byName.attributeOp("label", Op::kRead).as<Nox::String8>(), "rack 7");
  EXPECT_EQ(byName.attributeOp("uplink", Op::kRead).as<Ptr<Port>>(), port);
  EXPECT_EQ(byName.attributeOp("mirror", Op::kRead).as<Ptr<Port const>>(), port);
  EXPECT_EQ(chassis->slots(), 48U);
  byName.attributeOp("timeout", Op::kSet, {2U});
  EXPECT_EQ(chassis->timeout(), 2.0);
  byName.attributeOp("uplink", Op::kDelete);
  EXPECT_TRUE(byName.attributeOp("uplink", Op::kRead).isNull());
}

TEST_F(GenericIfTest, ATextIsTakenForThePointerThatItSpells) {
  byName.attributeOp("uplink", Op::kSet, {Nox::valueToStrepOfRawPtr(port.get())});
  EXPECT_EQ(chassis->uplink(), port);
  byName.attributeOp("uplink", Op::kSet, {Nox::valueToStrepOfRawPtr(chassis.get())});
  EXPECT_FALSE(chassis->uplink());
}

TEST_F(GenericIfTest, InstantiatesNewsAndDeletesAChild) {
  Value const first = byName.attributeOp("console", Op::kInstantiate, {"con0"});
  EXPECT_EQ(byName.attributeOp("console", Op::kInstantiate, {"con0"}), first);
  Value const second = byName.attributeOp("console", Op::kNew, {"con0"});
  EXPECT_FALSE(second == first);
  EXPECT_EQ(byName.attributeOp("console", Op::kDelete), second);
  EXPECT_TRUE(byName.attributeOp("console", Op::kDelete).isNull());
}

TEST_F(GenericIfTest, ACollectionIsReachedWholeOrByKey) {
  for (char const* name : {"eth1", "eth2", "eth3"})
    byName.attributeOp("port", Op::kSet, {Ptr<Port>(Nox::make<Port>(name))});
  Value const list = byName.attributeOp("port", Op::kRead);
  EXPECT_EQ(list.type(), "Nox::GenericIf::List_");
  EXPECT_EQ(GenericIf::List_::names(list).size(), 3U);
  EXPECT_EQ(byName.attributeOp("port", Op::kRead, {"eth2"}).as<Ptr<Port>>()->name(), "eth2");
  EXPECT_TRUE(byName.attributeOp("port", Op::kRead, {"eth9"}).isNull());
  byName.attributeOp("port", Op::kDelete, {"eth2"});
  EXPECT_EQ(chassis->port().members(), 2U);
  byName.attributeOp("port", Op::kDelete);
  EXPECT_TRUE(chassis->port().empty());
}

TEST_F(GenericIfTest, AWalkOverACollectionSurvivesRemovals) {
  for (char const* name : {"a", "b", "c", "d"})
    byName.attributeOp("port", Op::kSet, {Ptr<Port>(Nox::make<Port>(name))});
  std::vector<Name> walked;
  auto const at = byName.attributeIteratorConst("port");
  for (; *at; ++*at) {
    walked.push_back(at->key().as<Name>());
    EXPECT_EQ(at->member().as<Ptr<Port>>()->name(), walked.back());
    chassis->portDel(walked.back());
  }
  EXPECT_EQ(walked.size(), 4U);
  EXPECT_TRUE(at->key().isNull());
  EXPECT_THROW(byName.attributeIteratorConst("slots"), Nox::BadIndexAttrException);
  EXPECT_THROW(byName.attributeIteratorConst("nonsense"), Nox::OpNotSupportedException);
}

TEST_F(GenericIfTest, AHandlerIsCalledWithItsArgumentOrAsAWhole) {
  byName.attributeOp("handle", Op::kCall, {"one"});
  byName.attributeOp("handle", Op::kCall);
  EXPECT_THAT(chassis->calls, ElementsAre("one", "all"));
}

TEST_F(GenericIfTest, AListGivesTheNamesOfItsElements) {
  Value const list = Ptr<GenericIf::List_>(Nox::make<GenericIf::List_>(std::vector<Value>{port, chassis}));
  byName.attributeOp("handleNames", Op::kCall, {list});
  EXPECT_THAT(chassis->calls, ElementsAre("eth1", "spine"));
}

TEST_F(GenericIfTest, NamesAndIdsLeadToEachOther) {
  EXPECT_EQ(byName.attributeId("isOn"), 256U);
  EXPECT_EQ(byName.attributeId(Nox::String8("fail")), 266U);
  EXPECT_EQ(byName.attributeId("isHidden"), 267U);
  EXPECT_EQ(byName.attributeId("nonsense"), 0U);
  EXPECT_EQ(byName.attributeId(""), 0U);
  for (Nox::AttributeId id = 256; id <= 268; ++id) EXPECT_EQ(byName.attributeId(byName.attributeString(id)), id);
  EXPECT_EQ(byName.attributeString(269), "");
  EXPECT_EQ(byName.attributeOp(257, Op::kRead), Value(4U));
  EXPECT_EQ(byName.attributeOp("fullName", Op::kRead).as<Nox::String8>(), "spine") << "the base class answers";
}

TEST_F(GenericIfTest, WhatIsRefusedSaysWhyAndChangesNothing) {
  Value const list = Ptr<GenericIf::List_>(Nox::make<GenericIf::List_>(std::vector<Value>{port, 7U}));
  struct {
    std::function<void()> attempt;
    char const* text;
  } const cases[] = {
      {[&] { byName.attributeOp("isOn", Op::kSet, {"yes"}); },
       "attribute isOn, argument value: expected bool, found Nox::String"},
      {[&] { byName.attributeOp("label", Op::kSet, {7U}); },
       "attribute label, argument value: expected Nox::String, found U32"},
      {[&] { byName.attributeOp("uplink", Op::kSet, {chassis}); },
       "attribute uplink, argument value: expected Nox::Ptr<Sample::Port>, found Sample::Chassis"},
      {[&] { byName.attributeOp("uplink", Op::kSet, {true}); },
       "attribute uplink, argument value: expected Nox::Ptr<Sample::Port>, found bool"},
      {[&] { byName.attributeOp("handle", Op::kCall, {true}); },
       "attribute handle, argument name: expected Nox::Name, found bool"},
      {[&] { byName.attributeOp("console", Op::kInstantiate, {port}); },
       "attribute console, argument name: expected Nox::Name, found Sample::Port"},
      {[&] { byName.attributeOp("uplink", Op::kSet, {"0x0 "}); }, "junk at column 3 deserializing 0x0 "},
      {[&] { byName.attributeOp("uplink", Op::kSet, {Ptr<Port const>(port)}); },
       "attempting to modify a const instance"},
      {[&] { byName.attributeOp("handleNames", Op::kCall, {port}); },
       "attribute handleNames, argument names: expected List, found Sample::Port"},
      {[&] { byName.attributeOp("handleNames", Op::kCall, {list}); },
       "attribute handleNames, argument names: expected name, found U32"},
      {[&] { byName.attributeOp("isOn", Op::kCall); }, "call not supported by attribute isOn"},
      {[&] { byName.attributeOp("console", Op::kSet, {port}); }, "set not supported by attribute console"},
      {[&] { byName.attributeOp("isHidden", Op::kSet, {true}); }, "set not supported by attribute isHidden"},
      {[&] { byName.attributeOp("handle", Op::kRead); }, "read not supported by attribute handle"},
      {[&] { byName.attributeOp("port", Op::kNew, {port}); }, "new not supported by attribute port"},
      {[&] { byName.attributeOp("port", Op::kDelete, {port}); },
       "bad index of attribute port: expected Nox::Name, found Sample::Port"},
      {[&] { byName.attributeOp("nonsense", Op::kRead); }, "read not supported by attribute nonsense"},
      {[&] { byName.attributeOp(999, Op::kDelete); }, "delete not supported by attribute 999"},
      {[&] { byName.attributeOp("isOn", Op::kSet); }, "0 arguments given for attribute isOn, which takes 1"},
      {[&] {
         byName.attributeOp("console", Op::kInstantiate, {"a", "b"});
       },
       "2 arguments given for attribute console, which takes 1"},
      {[&] {
         byName.attributeOp("handle", Op::kCall, {"a", "b"});
       },
       "2 arguments given for attribute handle, which takes 1"},
      {[&] { byName.attributeOp("isOn", Op::kRead, {"eth1"}); },
       "bad index of attribute isOn: it takes none, found Nox::String"},
      {[&] { byName.attributeOp("uplink", Op::kDelete, {"eth1"}); },
       "bad index of attribute uplink: it takes none, found Nox::String"},
      {[&] { byName.attributeOp("port", Op::kRead, {7U}); },
       "bad index of attribute port: expected Nox::Name, found U32"},
      {[&] { byName.attributeOp("fail", Op::kCall); }, "taken"},
  };
  std::string const before = chassis->state();
  for (auto const& [attempt, text] : cases) {
    try {
      attempt();
      ADD_FAILURE() << "accepted; wanted " << text;
    } catch (Nox::Exception const& refused) {
      EXPECT_STREQ(refused.what(), text);
      EXPECT_EQ(refused.ids().has(12), std::string(text).starts_with("junk")) << text;
    }
    EXPECT_EQ(chassis->state(), before) << text;
  }
}

TEST_F(GenericIfTest, ARefusalIsAnExceptionOfItsKind) {
  EXPECT_THROW(byName.attributeOp("isOn", Op::kSet, {"yes"}), Nox::TypeException);
  EXPECT_THROW(byName.attributeOp("isOn", Op::kCall), Nox::OpNotSupportedException);
  EXPECT_THROW(byName.attributeOp("isOn", Op::kSet), Nox::UnknownArgException);
  EXPECT_THROW(byName.attributeOp("port", Op::kRead, {true}), Nox::BadIndexAttrException);
  EXPECT_THROW(byName.attributeOp("uplink", Op::kSet, {"0x0 "}), Nox::RangeException);
  EXPECT_THROW(GenericIfEntity(Ptr<Nox::Entity>()), Nox::RangeException);
}

TEST_F(GenericIfTest, ThroughAPointerToConstAnObjectIsReadAlone) {
  GenericIfEntity const reader{Ptr<Nox::Entity const>(chassis)};
  EXPECT_EQ(reader.attributeOp("slots", Op::kRead), Value(4U));
  std::string const before = chassis->state();
  struct {
    char const* name;
    Op op;
  } const changes[] = {{"slots", Op::kSet},
                       {"uplink", Op::kDelete},
                       {"console", Op::kInstantiate},
                       {"console", Op::kNew},
                       {"port", Op::kDelete},
                       {"handle", Op::kCall}};
  for (auto const& [name, op] : changes) {
    try {
      reader.attributeOp(name, op);
      ADD_FAILURE() << "accepted";
    } catch (Nox::ConstException const& refused) {
      EXPECT_STREQ(refused.what(), "attempting to modify a const instance");
    }
  }
  EXPECT_EQ(chassis->state(), before);
}

TEST_F(GenericIfTest, TakesWhatMakeReturnsAndEveryPointerToAKnownClass) {
  Nox::ValidPtr<Chassis> const made = Nox::make<Chassis>("leaf");
  Nox::ValidPtr<Chassis const> const read = made;
  EXPECT_FALSE(GenericIfEntity(made).isConst());
  EXPECT_FALSE(GenericIfEntity(Nox::make<Chassis>("leaf")).isConst());
  EXPECT_FALSE(GenericIfEntity(Ptr<Chassis>(made)).isConst());
  EXPECT_TRUE(GenericIfEntity(read).isConst());
  EXPECT_TRUE(GenericIfEntity(Ptr<Chassis const>(made)).isConst());
  EXPECT_FALSE(GenericIf(made).isConst());
  EXPECT_TRUE(Nox::GenericIfPtrInterface(read).isConst());
}

TEST_F(GenericIfTest, AnOperationIsATurn) {
  struct Watcher final : Nox::Entity::NotifieeConst {
    explicit Watcher(Chassis& watched) : chassis(watched) { notifierIs(Ptr<Nox::PtrInterface const>(&watched)); }
    void onIsNondestructing() override { chassis.calls.emplace_back(Nox::Turn::isOpen() ? "in a turn" : "bare"); }
    Chassis& chassis;
  };
  auto const watcher = Nox::make<Watcher>(*chassis);
  watcher->isRegisteredNotifieeIs(true);
  byName.attributeOp("isNondestructing", Op::kSet, {true});
  EXPECT_THAT(chassis->calls, ElementsAre("in a turn"));
}

TEST_F(GenericIfTest, AnOperationThatFailsDeliversWhatItWroteAndLeavesAHandlersExceptionToTheNext) {
  struct Watcher final : Nox::Entity::NotifieeConst {
    explicit Watcher(Ptr<Chassis> const& watched) { notifierIs(Ptr<Nox::PtrInterface const>(watched)); }
    void onIsNondestructing() override {
      ++heard;
      throw Nox::RangeException("heard");
    }
    int heard = 0;
  };
  auto const watcher = Nox::make<Watcher>(chassis);
  watcher->isRegisteredNotifieeIs(true);
  EXPECT_THROW(byName.attributeOp("failHalfway", Op::kCall), Nox::NameInUseException);
  EXPECT_EQ(watcher->heard, 1);
  EXPECT_FALSE(Nox::Turn::isOpen());
  EXPECT_EQ(byName.attributeOp("slots", Op::kRead), Value(4U));
  EXPECT_THROW(byName.attributeOp("slots", Op::kSet, {5U}), Nox::RangeException);
  EXPECT_EQ(chassis->slots(), 5U);
  EXPECT_NO_THROW(byName.attributeOp("isNondestructing", Op::kSet, {true}));
  EXPECT_THROW(byName.attributeOp("isNondestructing", Op::kSet, {false}), Nox::RangeException);
  EXPECT_FALSE(Nox::Turn::isOpen());
}

}  // namespace

}  // namespace GenericIfTest
