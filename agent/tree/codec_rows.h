// How `codec.h` walks the attribute tables: once to check a document, once to write it, once to read a record.
#pragma once

#include <charconv>
#include <tuple>

#include "agent/document/path.h"
#include "agent/tree/codec.h"
#include "agent/tree/key_order.h"
#include "framework/by_name/rows.h"
#include "framework/text/shared_text.h"
#include "records/mount.h"
#include "records/service.h"

namespace Agent {
namespace detail {

using Controller::MountDesc;
using Controller::ServiceVersionV1;
using Nox::kIsNone;

/// Works on one member of an object. The field of an error that this meets starts with the member's key.
template <class Work>
void inMember(std::string_view key, Work const& work) {
  try {
    work();
  } catch (InputError& error) {
    error.isInside(key);
    throw;
  }
}

/// Calls `work` with every row of R's table that is part of documents.
template <class R, class Work>
void forEachRow(Work const& work) {
  auto const visit = [&](auto const& row) {
    if (row.isDocument) work(row);
  };
  std::apply([&](auto const&... row) { (visit(row), ...); }, Nox::kRows<R>);
}

/// The value of a member, or null.
inline Json const* find(Json::object_t const& members, std::string_view key) {
  for (auto const& [name, value] : members)
    if (name == key) return &value;
  return nullptr;
}

// Scalars, both ways.

inline void parse(Json const& json, bool& to) { to = requireBool(json, ""); }
inline void parse(Json const& json, unsigned& to) { to = requireUnsigned(json, ""); }
inline void parse(Json const& json, Nox::String8& to) { to = Nox::sharedText<Nox::String8>(requireString(json, "")); }
template <class T>
void parsePart(std::string const& name, Json::object_t const& members, T& to) {
  inMember(name, [&] {
    Json const* const value = find(members, name);
    if (value == nullptr) throw InputError("", "missing");
    parse(*value, to);
  });
}
inline void parse(Json const& json, ServiceVersionV1& to) {
  unsigned number = 0;
  Nox::String8 desc;
  parsePart("version", requireObject(json, ""), number);
  parsePart("desc", requireObject(json, ""), desc);
  to = ServiceVersionV1(number, desc);
}
inline void parse(Json const& json, Nox::Name& to) { to = Nox::sharedText<Nox::Name>(requireString(json, "")); }
inline void parse(Json const& json, Controller::SystemId& to) {
  auto const address = Lumo::EthAddr::parse(requireString(json, ""));
  if (!address) throw InputError("", "expected a system id like 02:00:00:aa:00:01, found " + describe(json));
  to = Controller::SystemId(*address);
}

inline Json print(bool value) { return value; }
inline Json print(unsigned value) { return value; }
inline Json print(Nox::StringN<unsigned char> const& text) { return text.view(); }
inline Json print(Controller::SystemId const& systemId) { return keyText(systemId); }
inline Json print(ServiceVersionV1 const& version) {
  return {{"version", print(version.version())}, {"desc", print(version.desc())}};
}

// Keys of keyed fields, and the values that stand under them.

inline void parseKey(std::string const& text, Nox::Name& to) {
  requireName(text, "a service name", "");
  to = Nox::sharedText<Nox::Name>(text);
}
inline void parseKey(std::string const& text, Nox::String8& to) { to = Nox::sharedText<Nox::String8>(text); }
inline void parseKey(std::string const& text, unsigned& to) {
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), to);
  // Printed again it must be the same text: no leading zeros, nothing behind the number.
  if (error != std::errc() || keyText(to) != text) {
    throw InputError("", "expected a version number from 0 to 4294967295 without leading zeros");
  }
}

inline void parseMember(unsigned number, Json const& json, ServiceVersionV1& to) {
  Nox::String8 desc;
  parse(json, desc);
  to = ServiceVersionV1(number, desc);
}
inline void parseMember(Nox::String8 const& path, Json const& json, MountDesc& to) {
  to = MountDesc();
  to.path = path;
  for (auto const& [found, content] : requireObject(json, "")) {
    inMember(found, [&, &name = found, &value = content] {
      bool isKnown = false;
      auto const parseField = [&](auto const& field) {
        if (name != field.first) return;
        isKnown = true;
        parse(value, to.*field.second);
      };
      std::apply([&](auto const&... field) { (parseField(field), ...); }, MountDesc::fields());
      if (!isKnown) throw InputError("", "no such field; a mount has path, remotePath, type, mode and service");
      if (to.path != path) throw InputError("", "differs from its key: expected " + inQuotes(path.view()));
    });
  }
}
template <class R>
void parseMember(Nox::Name const& /*key*/, Json const& json, Nox::Ptr<R>& /*to*/) {
  checkDocument<R>(json);
}

inline Json printMember(ServiceVersionV1 const& version) { return print(version.desc()); }
inline Json printMember(MountDesc const& mount) {
  Json json = Json::object();
  std::apply([&](auto const&... field) { ((json[field.first] = print(mount.*field.second)), ...); },
             MountDesc::fields());
  return json;
}
template <class R>
Json printMember(Nox::Ptr<R> const& record) {
  return readDocument(*record);
}

/// The types of a keyed field: those of the collection that its row reads.
template <class Row, class R>
using MapOf = std::remove_cvref_t<decltype((std::declval<R const&>().*Row::whole)())>;
template <class Map>
using KeyOf = std::remove_cvref_t<decltype(std::declval<Map const&>().begin()->fwkKey())>;

/// Whether the members of a keyed field are children that are made from their key alone.
template <class Map>
constexpr bool kHasChildren =
    std::derived_from<std::remove_cvref_t<decltype(*std::declval<Map const&>().begin())>, Nox::Entity>;

// Checking.

template <class R, Nox::IsPlainRow Row>
void checkRow(Row const& /*row*/, Json const& json, Writer /*by*/) {
  std::remove_cvref_t<decltype((std::declval<R const&>().*Row::read)())> value;
  parse(json, value);
}
template <class R, Nox::IsChildRow Row>
void checkRow(Row const& /*row*/, Json const& json, Writer by) {
  if (!kIsNone<Row::is> && json.is_null()) return;
  checkDocument<std::remove_cvref_t<decltype(*(std::declval<R&>().*Row::change)())>>(json, by);
}
template <class R, Nox::IsCollectionRow Row>
void checkRow(Row const& /*row*/, Json const& json, Writer by) {
  using Map = MapOf<Row, R>;
  for (auto const& [found, content] : requireObject(json, "")) {
    inMember(found, [&, &name = found, &value = content] {
      KeyOf<Map> key{};
      parseKey(name, key);
      if constexpr (kHasChildren<Map>) {
        checkDocument<typename Map::Member>(value, by);
      } else {
        typename Map::Value member{};
        parseMember(key, value, member);
      }
    });
  }
}
template <class R>
std::string fieldNames() {
  std::string names;
  forEachRow<R>([&](auto const& row) { names.append(names.empty() ? "" : ", ").append(row.name); });
  return names;
}

// Writing. An absent field is null here.

template <class R, Nox::IsPlainRow Row>
void writeRow(Row const& /*row*/, Json const* json, R& record, Writer /*by*/) {
  if constexpr (!kIsNone<Row::set>) {
    std::remove_cvref_t<decltype((record.*Row::read)())> value{};
    if (json != nullptr) parse(*json, value);
    (record.*Row::set)(value);
  }
}
template <class R, Nox::IsChildRow Row>
void writeRow(Row const& /*row*/, Json const* json, R& record, Writer by) {
  static Json const nothing = Json::object();
  if constexpr (!kIsNone<Row::is>) {
    if (json == nullptr || json->is_null()) return;
    Json const* const name = find(json->get_ref<Json::object_t const&>(), "name");
    (record.*Row::is)(name != nullptr ? Nox::sharedText<Nox::Name>(requireString(*name, "name")) : Nox::Name());
  }
  writeDocument(json != nullptr ? *json : nothing, *(record.*Row::change)(), by);
}
/// One member that a document lists, in a collection of the same order as the one that it is written to.
template <class Key>
class Listed final : public Nox::Row<Key, Json const*> {
 public:
  using Nox::Row<Key, Json const*>::Row;
};

/// Enters the member whether it is there or not; entering an equal value changes nothing.
template <class Enter, class R, class Key, class Value>
void enterMember(Enter enter, R& record, Key const& key, Value const& /*present*/, Json const& json) {
  Value value;
  parseMember(key, json, value);
  (record.*enter)(value);
}
template <class Enter, class R, class Child>
void enterMember(Enter enter, R& record, Nox::Name const& name, Nox::Ptr<Child> const& present, Json const& json) {
  if (present) return writeDocument(json, *present);
  Nox::ValidPtr<Child> const made = Nox::make<Child>(name);
  writeDocument(json, *made);
  (record.*enter)(made);
}

template <class R, Nox::IsCollectionRow Row>
void writeRow(Row const& /*row*/, Json const* json, R& record, Writer by) {
  auto const& map = (record.*Row::whole)();
  using Map = MapOf<Row, R>;
  using Key = KeyOf<Map>;
  Nox::ValueMap<Listed<Key>, Key, Json const*> listed;
  if (json != nullptr) {
    for (auto const& [name, value] : json->get_ref<Json::object_t const&>()) {
      Key key{};
      parseKey(name, key);
      listed.valueIs(key, &value);
    }
  }
  for (auto const& member : map)
    if (Key const key = member.fwkKey(); !listed.has(key)) (record.*Row::remove)(key);
  for (bool const isThere : {true, false}) {
    for (auto const& member : listed) {
      Key const& key = member.fwkKey();
      if (map.has(key) != isThere) continue;
      if constexpr (kHasChildren<Map>)
        writeDocument(*member.value(), *(record.*Row::enter)(key), by);
      else
        enterMember(Row::enter, record, key, map.value(key), *member.value());
    }
  }
}

// Reading.

template <class R, Nox::IsPlainRow Row>
Json readRow(Row const& /*row*/, R const& record) {
  return print((record.*Row::read)());
}
template <class R, Nox::IsChildRow Row>
Json readRow(Row const& /*row*/, R const& record) {
  auto const child = (record.*Row::read)();
  return child ? readDocument(*child) : Json();
}
template <class R, Nox::IsCollectionRow Row>
Json readRow(Row const& /*row*/, R const& record) {
  Json json = Json::object();
  // Appended without the object's own search for the key, which would read them all for each.
  auto& members = json.get_ref<Json::object_t&>();
  for (auto const& [text, member] : sortedByKey((record.*Row::whole)())) {
    if constexpr (kHasChildren<MapOf<Row, R>>)
      members.emplace_back(text, readDocument(*member));
    else
      members.emplace_back(text, printMember(member->value()));
  }
  return json;
}

}  // namespace detail

template <class R>
void checkDocument(Json const& document, Writer by) {
  for (auto const& [found, content] : requireObject(document, "")) {
    detail::inMember(found, [&name = found, &value = content, by] {
      bool isKnown = false;
      detail::forEachRow<R>([&](auto const& row) {
        if (row.name != name) return;
        isKnown = true;
        if (row.isAnswer && by != Writer::kRegistry)
          throw InputError("", "this field is the registry's own: no put may hold it");
        detail::checkRow<R>(row, value, by);
      });
      if (!isKnown) throw InputError("", "no such field here; the fields are " + detail::fieldNames<R>());
    });
  }
}

template <class R>
Json withoutAnswers(Json const& document) {
  if (!document.is_object()) return document;
  Json::object_t inputs;
  for (auto const& member : document.get_ref<Json::object_t const&>()) {
    bool isInput = true;
    detail::forEachRow<R>([&](auto const& row) { isInput = isInput && !(row.isAnswer && row.name == member.first); });
    if (isInput) inputs.push_back(member);
  }
  return inputs;
}

template <class R>
void writeDocument(Json const& document, R& record, Writer by) {
  auto const& members = document.get_ref<Json::object_t const&>();
  detail::forEachRow<R>([&](auto const& row) {
    if (!row.isAnswer || by == Writer::kRegistry) detail::writeRow<R>(row, detail::find(members, row.name), record, by);
  });
}

template <class R>
Json readDocument(R const& record) {
  Json json = Json::object();
  detail::forEachRow<R>([&](auto const& row) { json.emplace(row.name, detail::readRow<R>(row, record)); });
  return json;
}

}  // namespace Agent
