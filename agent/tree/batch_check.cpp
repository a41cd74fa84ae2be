// Which entries a registration has after each operation, and which it has lost.
#include "agent/tree/batch_check.h"

namespace Agent {

void BatchCheck::Registration::put(std::string const& entry) {
  if (isGone) throw InputError("", "the registration would go and come back in one turn; expected two");
  bool const isLookedAt = entry == "config" || entry == "status";
  if (isLookedAt && gone.contains(entry))
    throw InputError("", "the entry would go and come back in one turn; expected two");
  entries.insert(entry);
}

void BatchCheck::Registration::remove(std::string const& entry) {
  if (entries.erase(entry) == 0) return;
  gone.insert(entry);
  isGone = entries.empty();
}

void BatchCheck::Registration::removeAll() {
  isGone = isGone || !entries.empty();
  entries.clear();
}

BatchCheck::Registration& BatchCheck::registration(std::string const& switchName) {
  auto const [at, isNew] = registrations_.try_emplace(switchName);
  if (!isNew) return at->second;
  std::string const prefix = "registration/" + switchName + "/";
  auto const [begin, end] = withPrefix(documents_, prefix);
  for (auto document = begin; document != end; ++document)
    at->second.entries.insert(document->first.substr(prefix.size()));
  return at->second;
}

/// Applies one operation to the registration that it is about.
struct BatchCheck::Step {
  BatchCheck& check;
  bool isPut;

  void entry(std::string const& switchName, std::string const& name) const {
    Registration& registration = check.registration(switchName);
    if (isPut)
      registration.put(name);
    else
      registration.remove(name);
  }

  void operator()(At::SwitchConfig const& at) const { entry(at.switchName, "config"); }
  void operator()(At::SwitchStatus const& at) const { entry(at.switchName, "status"); }
  void operator()(At::OtherEntry const& at) const { entry(at.switchName, at.entry); }
  void operator()(At::Registration const& at) const { check.registration(at.switchName).removeAll(); }
  template <class Place>
  void operator()(Place const& /*at*/) const {}
};

void BatchCheck::add(Operation const& operation) { std::visit(Step{*this, operation.isPut()}, operation.path); }

}  // namespace Agent
