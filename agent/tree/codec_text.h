// How values are written in documents.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "agent/document/breath.h"
#include "agent/document/json_text.h"
#include "agent/tree/key_order.h"
#include "records/mount.h"
#include "records/service.h"

namespace Agent::detail {

using Controller::MountDesc;
using Controller::ServiceVersionV1;

inline void print(std::string& to, bool value) { to += value ? "true" : "false"; }
inline void print(std::string& to, unsigned value) { to += std::to_string(value); }
inline void print(std::string& to, Nox::StringN<unsigned char> const& text) { appendQuoted(to, text.view()); }
inline void print(std::string& to, Controller::SystemId const& systemId) { appendQuoted(to, keyText(systemId)); }

/// Appends an object; `appendMembers` is given what begins each of its members.
template <class AppendMembers>
void printObject(std::string& to, AppendMembers const& appendMembers) {
  to += '{';
  appendMembers([&, isFirst = true](std::string_view key) mutable {
    Breath::take();
    if (!std::exchange(isFirst, false)) to += ',';
    appendQuoted(to, key);
    to += ':';
  });
  to += '}';
}
inline void print(std::string& to, ServiceVersionV1 const& version) {
  printObject(to, [&](auto begin) {
    begin("version");
    print(to, version.version());
    begin("desc");
    print(to, version.desc());
  });
}

inline void printMember(std::string& to, ServiceVersionV1 const& version) { print(to, version.desc()); }
inline void printMember(std::string& to, MountDesc const& mount) {
  printObject(to, [&](auto begin) {
    std::apply([&](auto const&... field) { ((begin(field.first), print(to, mount.*field.second)), ...); },
               MountDesc::fields());
  });
}

}  // namespace Agent::detail
