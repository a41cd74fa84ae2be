// A switch's services as reactors: a short log of what is done to them, and a ready switch to do it to.
#pragma once

#include <string>
#include <vector>

#include "negotiation_model.h"

namespace ServiceTest {

using Lines = std::vector<std::string>;

/// What the machine did, of its text trace: "switch acl" and "controller acl" for a member's negotiation, "switch acl
/// leaves" and "controller acl leaves" for its clean-up, "negotiated acl" for a negotiation itself, and the ends of a
/// pass.
class Steps {
 public:
  Lines take() {
    Lines steps;
    for (std::string const& line : capture_.lines()) {
      std::string const service = line.substr(line.rfind(' ') + 1);
      std::string const tag = line.substr(0, line.find(' ', 2));
      if (tag == "8 284") steps.push_back("switch " + service);
      if (tag == "8 297") steps.push_back("controller " + service);
      if (tag == "8 290") steps.push_back("switch " + service + " leaves");
      if (tag == "8 303") steps.push_back("controller " + service + " leaves");
      if (tag == "8 169") steps.push_back("negotiated " + service);
      if (tag == "5 103") steps.emplace_back("ready");
      if (tag == "1 128") steps.emplace_back("answered");
      if (tag == "1 133") steps.emplace_back("shut down");
    }
    capture_.clear();
    return steps;
  }

 private:
  TraceCapture capture_{{1, 5, 8}};
};

template <class Members>
Lines namesOf(Members const& members) {
  Lines names;
  for (auto& member : members) names.emplace_back(member.name().view());
  return names;
}
inline Lines switchMembers(OneSwitch const& one) { return namesOf(one.sm->serviceConfig()); }
inline Lines controllerMembers(OneSwitch const& one) { return namesOf(one.sm->localServiceConfig()); }

inline Service const kOne{true, {{1, "s1"}}};
inline Service const kTwo{true, {{1, "s1"}, {2, "s2"}}};

/// A ready switch with the services "a" and "b", which the controller configures too, and negotiated.
struct ReadySwitch : OneSwitch {
  ReadySwitch() {
    a = configure("a", kOne);
    b = configure("b", kOne);
    controllerA = configureController("a", kTwo);
    controllerB = configureController("b", kTwo);
    hear();
    start();
    steps.take();
  }
  Nox::Ptr<Controller::ServiceConfigV1> a, b, controllerA, controllerB;
  Steps steps;
};

}  // namespace ServiceTest
