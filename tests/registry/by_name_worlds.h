// Two equal worlds, one driven by members and one by names: what the tables of operations by name are checked with.
#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <regex>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "framework/by_name/attr_table.h"
#include "publication_support.h"
#include "support/trace_capture.h"
#include "support/write_log.h"

namespace ByName {

using Nox::GenericIf;
using Nox::Ptr;
using Nox::PtrInterface;
using Op = GenericIf::Op;
using Value = GenericIf::Value;
using Lines = std::vector<std::string>;

/// Chooses, among a collection's readers, the one of one member.
template <class C, class V, class K>
consteval auto memberOf(Ptr<V> (C::*read)(K const&) const) {
  return read;
}

/// Every class's machine at work, and for every input another one that may take its place. Objects are told by class
/// and by the order in which they were first seen, so that those of one world can be compared with those of another.
class Side : public Publication::OneSwitch {
 public:
  Side() {
    Nox::Turn turn;
    enrol("leaf-2", systemId(2));
    offer("topology", "/sysdb/a");
    publishedMountsTable->servicePublishReadyIs("topology", true);
    root->registrationRootDirIs(registrationRootDir);
    mountsRegistry = root->mountsRegistryIs(otherDir, "/mounts", otherDir, "/mounted", 3, 30);
    ownMountsTable = root->publishedMountsTableIs();
    ownSwitchTable = root->registeredSwitchTableIs();
    root->mountsRegistrySmIs(
        mountsRegistry, controllerStatus, otherDir, ownMountsTable, ownSwitchTable, registrationRootDir);
    root->serviceConfigDirSmIs(otherDir, otherDir, otherDir, otherDir, ownMountsTable, mountsRegistry);
    root->initialMountSmIs(otherDir, otherDir, heartbeatConfig, ownSwitchTable, peers);
    otherConfig->enabledIs(true);
    otherServiceConfigDir->serviceIs(topology());
    otherOffer->publishedMountIs(Publication::mountOf("topology", "/sysdb/b"));
    otherMountsTable->systemIs(systemId(1))->publishedMountIs(Publication::mountOf("topology", "/sysdb/c"));
    otherPeers->peerIs(systemId(2));
  }

  /// The machine of that class at which operations are compared.
  template <class T>
  Ptr<T> machine() const {
    return std::get<Ptr<T>>(std::tuple(root, registryRootSm(), registrySm("leaf-1"), sm(), publisher()));
  }

  std::string text(Value const& value) {
    auto const object = value.object();
    if (!object) {
      std::ostringstream text;
      text << value.type() << ' ' << value;
      return text.str();
    }
    if (auto const list = Nox::ptrCast<GenericIf::List_ const>(object)) return listText(list->elements());
    return label(object) + (value == Value(object) ? " const" : "") + flags(*object);
  }
  template <class V, class K>
  std::string text(Nox::HashMap<V, K> const& members) {
    std::vector<Value> elements;
    for (auto& member : members) elements.emplace_back(&member);
    return listText(elements);
  }
  /// Whether an object is switched off, and whether it is a zombie.
  static std::string flags(PtrInterface const& object) {
    return std::string(object.hasNotificationActive() ? "" : " off") + (object.noxMarkedForDeletion() ? " zombie" : "");
  }
  /// A message with its pointers told as objects are.
  std::string textOfMessage(std::string const& message) {
    static std::regex const kPointer("0x[0-9a-fA-F]+");
    std::string told;
    auto const end = std::sregex_iterator();
    std::size_t from = 0;
    for (auto at = std::sregex_iterator(message.begin(), message.end(), kPointer); at != end; ++at) {
      told += message.substr(from, static_cast<std::size_t>(at->position()) - from);
      auto const object = Nox::sequenceToValueOfPtr(at->str());
      told += object ? label(object) : "null";
      from = static_cast<std::size_t>(at->position() + at->length());
    }
    return told + message.substr(from);
  }

  /// Changes what the machines watch, first of one switch and then of all.
  void stir() {
    touch();
    silence(systemId(1));
    heartbeat(systemId(1));
    offer("topology", "/sysdb/d");
    publishedMountsTable->servicePublishReadyIs("topology", false);
    serviceConfigDir->serviceDel("topology");
    disable();
    enable();
  }
  /// Lets go of the objects that were seen; until then no later one has the address of an earlier one.
  void forget() { seen_.clear(); }

  Nox::ValidPtr<Controllerdb::Config> const otherConfig = Nox::make<Controllerdb::Config>("otherConfig");
  Nox::ValidPtr<Nox::Dir> const otherDir = Nox::make<Nox::Dir>("otherDir");
  Nox::ValidPtr<ControllerRegistration::ControllerStatus> const otherControllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("otherControllerStatus");
  Nox::ValidPtr<Controller::PeerTable> const otherPeers = Nox::make<Controller::PeerTable>("otherPeers");
  Nox::ValidPtr<Controller::ServiceConfigDir> const otherServiceConfigDir =
      Nox::make<Controller::ServiceConfigDir>("otherServiceConfig");
  Nox::ValidPtr<Controller::OverrideServiceConfigDir> const otherOverrides =
      Nox::make<Controller::OverrideServiceConfigDir>("otherOverrides");
  Nox::ValidPtr<Controller::PublishedMountsTable> const otherMountsTable =
      Nox::make<Controller::PublishedMountsTable>("otherMountsTable");
  Nox::ValidPtr<Controller::SystemPublishedMount> const otherOffer =
      Nox::make<Controller::SystemPublishedMount>(systemId(1));
  Nox::ValidPtr<ControllerRegistration::SwitchConfig> const otherSwitchConfig =
      Nox::make<ControllerRegistration::SwitchConfig>("leaf-9");
  Nox::ValidPtr<Controller::ServiceConfigV1> const otherTopology = topology();
  Nox::ValidPtr<Nox::ActivityConfig> const activity = Nox::make<Nox::ActivityConfig>();
  Nox::ValidPtr<Controller::Heartbeat::Config> const heartbeatConfig =
      Nox::make<Controller::Heartbeat::Config>("heartbeatConfig");

  // What the machines at work were made from.
  Ptr<Nox::Dir> const leafDir = dir("leaf-1");
  Ptr<ControllerRegistration::SwitchConfig> const leafConfig = switchConfig("leaf-1");
  Ptr<ControllerRegistration::SwitchStatus> const leafStatus = switchStatus("leaf-1");
  Ptr<Controller::ServiceStatusDir> const leafServices = serviceStatusDir("leaf-1");
  Nox::ValidPtr<Controller::SystemPublishedMount> const leafOffer = publishedMountsTable->systemIs(systemId(1));
  Ptr<Controller::MountsRegistry> mountsRegistry;
  Ptr<Controller::PublishedMountsTable> ownMountsTable;
  Ptr<Controller::RegisteredSwitchTable> ownSwitchTable;

 private:
  std::string listText(std::vector<Value> const& elements) {
    std::string text = "list";
    for (Value const& element : elements) text += ' ' + this->text(element);
    return text;
  }
  std::string label(Ptr<PtrInterface const> const& object) {
    auto const found = std::find(seen_.begin(), seen_.end(), object);
    std::string const number = std::to_string(found - seen_.begin());
    if (found == seen_.end()) seen_.push_back(object);
    // An entity's name tells the records apart even when they are seen for the first time.
    auto const entity = Nox::ptrCast<Nox::Entity const>(object);
    return std::string(object->fwkType().name) + (entity ? " " + std::string(entity->name().view()) : "") + " #" +
           number;
  }

  std::vector<Ptr<PtrInterface const>> seen_;
};

/// One operation, and the call of the member that it stands for.
struct Step {
  std::string attribute;
  Op op;
  std::function<std::vector<Value>(Side&)> arguments;
  std::function<std::string(Side&, PtrInterface&)> call;
  std::size_t argCount;
};

/// Makes the steps of a class: step("config", Op::kSet, &T::configIs, &Side::otherConfig). An argument is a value, or
/// where a side keeps it.
template <class T>
struct StepOf {
  template <class Member, class... A>
  Step operator()(char const* attribute, Op op, Member member, A... arguments) const {
    return {.attribute = attribute,
            .op = op,
            .arguments = [=](Side& side) { return std::vector<Value>{of(side, arguments)...}; },
            .call = [=](Side& side, PtrInterface& object) -> std::string {
              auto& self = static_cast<T&>(object);
              using Result = std::invoke_result_t<Member, T&, decltype(of(side, arguments))...>;
              if constexpr (std::is_void_v<Result>) {
                std::invoke(member, self, of(side, arguments)...);
                return side.text(Value());
              } else {
                return side.text(std::invoke(member, self, of(side, arguments)...));
              }
            },
            .argCount = sizeof...(A)};
  }

 private:
  template <class A>
  static decltype(auto) of([[maybe_unused]] Side& side, A const& argument) {
    if constexpr (std::is_member_object_pointer_v<A>)
      return side.*argument;
    else
      return A(argument);
  }
};

/// Runs something and adds to `lines` every write and every trace message of it.
template <class Run>
void watch(Lines& lines, Run run) {
  TraceCapture trace({1, 2, 3, 4, 5, 6, 7, 8, 9});
  WriteLog writes;
  run();
  for (std::string const& line : writes.lines()) lines.push_back("wrote " + line);
  for (std::string const& line : trace.lines()) lines.push_back("traced " + line);
}

/// Adds what one operation did: what it returned or threw, what it wrote and traced, what all attributes read before
/// and after it, and what happens when what it took out is held no more.
template <class Operation>
void perform(Lines& lines, Side& side, Ptr<PtrInterface> const& machine, Operation operation) {
  auto const readAll = [&] {
    lines.push_back("the machine is" + Side::flags(*machine));
    Nox::AttrRows const& rows = machine->fwkType().rows();
    for (Nox::AttrRow const& row : std::span(rows.rows, rows.count))
      if (row.does(Op::kRead))
        lines.push_back(std::string(row.name) + ": " + side.text(GenericIf(machine).attributeOp(row.name, Op::kRead)));
  };
  readAll();
  watch(lines, [&] {
    try {
      lines.push_back("returned " + operation());
    } catch (Nox::Exception const& thrown) {
      lines.push_back(std::string("threw ") + typeid(thrown).name() + ' ' + side.textOfMessage(thrown.what()));
    }
  });
  readAll();
  watch(lines, [&] { side.forget(); });
}

/// Does a step in two fresh worlds, in one by the member and in the other by name; then once more, when it often goes
/// another way, by the attribute's id. What the machines watch changes at the end, so that what was changed in them
/// shows.
template <class T>
std::pair<Lines, Lines> bothWays(Step const& step) {
  Side byMember;
  Side byName;
  Ptr<PtrInterface> const driven = byMember.machine<T>();
  Ptr<PtrInterface> const named = byName.machine<T>();
  std::pair<Lines, Lines> lines;
  for (bool const isById : {false, true}) {
    perform(lines.first, byMember, driven, [&] {
      Nox::Turn turn;
      return step.call(byMember, *driven);
    });
    perform(lines.second, byName, named, [&] {
      GenericIf const generic(named);
      std::vector<Value> const arguments = step.arguments(byName);
      return byName.text(isById ? generic.attributeOp(generic.attributeId(step.attribute), step.op, arguments)
                                : generic.attributeOp(step.attribute, step.op, arguments));
    });
  }
  watch(lines.first, [&] { byMember.stir(); });
  watch(lines.second, [&] { byName.stir(); });
  return lines;
}

/// An attribute's operation with its number of arguments, as text.
inline std::string form(std::string_view attribute, Op op, std::size_t argCount) {
  static constexpr std::array<char const*, 6> kOps{"read", "set", "instantiate", "new", "delete", "call"};
  return std::string(attribute) + ": " + kOps[static_cast<std::size_t>(op)] + " with " + std::to_string(argCount);
}

/// Every form that a class's rows have; a collection is read and removed from as a whole and by key.
inline std::set<std::string> formsOf(Nox::NoxType const& type) {
  std::set<std::string> forms;
  for (Nox::AttrRow const& row : std::span(type.rows().rows, type.rows().count)) {
    std::size_t const keys = (row.flags & Nox::NoxAttr::kKeyed) != 0 ? 1 : 0;
    for (Op const op : {Op::kRead, Op::kSet, Op::kInstantiate, Op::kNew, Op::kDelete, Op::kCall}) {
      if (!row.does(op)) continue;
      bool const hasArguments = op == Op::kInstantiate || op == Op::kNew || op == Op::kCall;
      bool const isWholeToo = op == Op::kRead || op == Op::kDelete;
      forms.insert(form(row.name, op, op == Op::kSet ? 1 : (hasArguments ? row.argCount : 0) + keys));
      if (isWholeToo) forms.insert(form(row.name, op, 0));
    }
  }
  return forms;
}

}  // namespace ByName
