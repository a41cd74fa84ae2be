// How `codec.h` walks the attribute tables: once to parse a document, once to write it, once to read a record.
#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/document/breath.h"
#include "agent/document/number.h"
#include "agent/document/path.h"
#include "agent/tree/codec.h"
#include "agent/tree/codec_text.h"
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

template <class R>
void printDocument(std::string& to, R const& record);

// Scalars.

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

// Keys of keyed fields, and the values that stand under them.

inline void parseKey(std::string const& text, Nox::Name& to) {
  requireName(text, "a service name", "");
  to = Nox::sharedText<Nox::Name>(text);
}
inline void parseKey(std::string const& text, Nox::String8& to) { to = Nox::sharedText<Nox::String8>(text); }
inline void parseKey(std::string const& text, unsigned& to) {
  // Printed again it must be the same text: no leading zeros.
  if (!readNumber(text, to) || keyText(to) != text)
    throw InputError("", "expected a version number from 0 to 4294967295 without leading zeros");
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
void printMember(std::string& to, Nox::Ptr<R> const& record) {
  printDocument(to, *record);
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

/// What a document says of one member of a keyed field.
template <class Map>
struct MemberOf {
  using Value = typename Map::Value;
};
template <class Map>
  requires kHasChildren<Map>
struct MemberOf<Map> {
  using Value = DocumentOf<typename Map::Member>;
};
template <class Map>
  requires requires { typename Map::Value::Pointee; }
struct MemberOf<Map> {
  using Value = DocumentOf<typename Map::Value::Pointee>;
};

template <class R, class Row>
using ChildIn = std::remove_cvref_t<decltype(*(std::declval<R&>().*Row::change)())>;

/// What a document says of a child, and the name of the child that it describes.
template <class C>
struct ChildValue {
  Nox::Name name;
  DocumentOf<C> document;
};

/// What a document says of one row; as it is made, what a document means that leaves the field out.
template <class R, Nox::IsPlainRow Row>
auto valueOf(Row const& /*row*/) -> std::remove_cvref_t<decltype((std::declval<R const&>().*Row::read)())>;
template <class R, Nox::IsChildRow Row>
auto valueOf(Row const& /*row*/) -> std::optional<ChildValue<ChildIn<R, Row>>>;
template <class R, Nox::IsCollectionRow Row>
auto valueOf(Row const& /*row*/)
    -> std::vector<std::pair<KeyOf<MapOf<Row, R>>, typename MemberOf<MapOf<Row, R>>::Value>>;
template <class R, class... Row>
std::tuple<decltype(valueOf<R>(std::declval<Row const&>()))...> valuesOf(std::tuple<Row...> const& rows);

/// Calls `work` with every row of R's table that is part of documents, and with what `values` has for it.
template <class R, class Values, class Work>
void forEachValue(Values& values, Work const& work) {
  [&]<std::size_t... I>(std::index_sequence<I...> /*rows*/) {
    auto const visit = [&](auto const& row, auto& value) {
      if (row.isDocument) work(row, value);
    };
    (visit(std::get<I>(Nox::kRows<R>), std::get<I>(values)), ...);
  }
  (std::make_index_sequence<std::tuple_size_v<std::remove_const_t<Values>>>());
}

}  // namespace detail

template <class R>
class DocumentOf {
 public:
  /// Every field has its default.
  DocumentOf() = default;
  /// Throws an InputError unless `document` may be put over such a record: an object with no other members than the
  /// fields that this writer writes, each of its type. Fields in which the registry does not answer may be written by
  /// both. The error's field starts inside the document.
  explicit DocumentOf(Json const& document, Writer by = Writer::kOutside);

  /// Writes it into a record, field by field in the order of the record's table; a field that was absent gets its
  /// default. Within a keyed field removed members come first, then changed ones, then new ones, each in the
  /// collection's order; members that are still there stay the same entities. Opens no turn.
  void writeTo(R& record, Writer by = Writer::kOutside) const;

 private:
  decltype(detail::valuesOf<R>(Nox::kRows<R>)) values_;
};

namespace detail {

template <class R>
std::string fieldNames() {
  std::string names;
  forEachRow<R>([&](auto const& row) { names.append(names.empty() ? "" : ", ").append(row.name); });
  return names;
}

// Parsing.

template <class Key, class R>
void parseMember(Key const& /*key*/, Json const& json, DocumentOf<R>& to, Writer by) {
  to = DocumentOf<R>(json, by);
}
template <class Key, class Value>
void parseMember(Key const& key, Json const& json, Value& to, Writer /*by*/) {
  parseMember(key, json, to);
}

template <class R, Nox::IsPlainRow Row, class Value>
void parseRow(Row const& /*row*/, Json const& json, Writer /*by*/, Value& to) {
  parse(json, to);
}
template <class R, Nox::IsChildRow Row, class Value>
void parseRow(Row const& /*row*/, Json const& json, Writer by, Value& to) {
  if (!kIsNone<Row::is> && json.is_null()) return;
  to.emplace(ChildValue<ChildIn<R, Row>>{{}, DocumentOf<ChildIn<R, Row>>(json, by)});
  if (Json const* const name = find(json.get_ref<Json::object_t const&>(), "name")) parse(*name, to->name);
}
template <class R, Nox::IsCollectionRow Row, class Value>
void parseRow(Row const& /*row*/, Json const& json, Writer by, Value& to) {
  for (auto const& [found, content] : requireObject(json, "")) {
    Breath::take();
    inMember(found, [&, &name = found, &value = content] {
      auto& [key, member] = to.emplace_back();
      parseKey(name, key);
      parseMember(key, value, member, by);
    });
  }
}

// Writing.

template <class R, Nox::IsPlainRow Row, class Value>
void writeRow(Row const& /*row*/, Value const& value, R& record, Writer /*by*/) {
  if constexpr (!kIsNone<Row::set>) (record.*Row::set)(value);
}
template <class R, Nox::IsChildRow Row, class Value>
void writeRow(Row const& /*row*/, Value const& value, R& record, Writer by) {
  if constexpr (!kIsNone<Row::is>) {
    if (!value) return;
    (record.*Row::is)(value->name);
  }
  static typename Value::value_type const nothing;
  (value ? *value : nothing).document.writeTo(*(record.*Row::change)(), by);
}
/// One member that a document lists, in a collection of the same order as the one that it is written to.
template <class Key, class Value>
class Listed final : public Nox::Row<Key, Value const*> {
 public:
  using Nox::Row<Key, Value const*>::Row;
};

/// Writes the member that is there, or enters a new one.
template <class Row, class R, class C>
void enterMember(Row const& /*row*/, R& record, Nox::Name const& name, Nox::Ptr<C> const& present,
                 DocumentOf<C> const& document, Writer by) {
  if (present) return document.writeTo(*present, by);
  Nox::ValidPtr<C> const made = Nox::make<C>(name);
  document.writeTo(*made, by);
  (record.*Row::enter)(made);
}

template <class R, Nox::IsCollectionRow Row, class Value>
void writeRow(Row const& row, Value const& value, R& record, Writer by) {
  auto const& map = (record.*Row::whole)();
  using Map = MapOf<Row, R>;
  using Key = KeyOf<Map>;
  using Member = typename MemberOf<Map>::Value;
  Nox::ValueMap<Listed<Key, Member>, Key, Member const*> listed;
  for (auto const& [key, member] : value) {
    Breath::take();
    listed.valueIs(key, &member);
  }
  for (auto const& member : map) {
    Breath::take();
    if (Key const key = member.fwkKey(); !listed.has(key)) (record.*Row::remove)(key);
  }
  for (bool const isThere : {true, false}) {
    for (auto const& member : listed) {
      Breath::take();
      Key const& key = member.fwkKey();
      if (map.has(key) != isThere) continue;
      if constexpr (kHasChildren<Map>)
        member.value()->writeTo(*(record.*Row::enter)(key), by);
      else if constexpr (std::is_same_v<Member, typename Map::Value>)
        (record.*Row::enter)(*member.value());
      else
        enterMember(row, record, key, map.value(key), *member.value(), by);
    }
  }
}

// Reading.

template <class R, Nox::IsPlainRow Row>
void printRow(std::string& to, Row const& /*row*/, R const& record) {
  print(to, (record.*Row::read)());
}
template <class R, Nox::IsChildRow Row>
void printRow(std::string& to, Row const& /*row*/, R const& record) {
  auto const child = (record.*Row::read)();
  if (child)
    printDocument(to, *child);
  else
    to += "null";
}
template <class R, Nox::IsCollectionRow Row>
void printRow(std::string& to, Row const& /*row*/, R const& record) {
  printObject(to, [&](auto begin) {
    for (auto const& [text, member] : sortedByKey((record.*Row::whole)())) {
      begin(text);
      if constexpr (kHasChildren<MapOf<Row, R>>)
        printDocument(to, *member);
      else
        printMember(to, member->value());
    }
  });
}

template <class R>
void printDocument(std::string& to, R const& record) {
  printObject(to, [&](auto begin) {
    forEachRow<R>([&](auto const& row) {
      begin(row.name);
      printRow(to, row, record);
    });
  });
}

}  // namespace detail

template <class R>
DocumentOf<R>::DocumentOf(Json const& document, Writer by) {
  for (auto const& [found, content] : requireObject(document, "")) {
    detail::inMember(found, [&, &name = found, &value = content] {
      bool isKnown = false;
      detail::forEachValue<R>(values_, [&](auto const& row, auto& to) {
        if (row.name != name) return;
        isKnown = true;
        if (row.isAnswer && by != Writer::kRegistry)
          throw InputError("", "this field is the registry's own: no put may hold it");
        detail::parseRow<R>(row, value, by, to);
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
void DocumentOf<R>::writeTo(R& record, Writer by) const {
  detail::forEachValue<R>(values_, [&](auto const& row, auto const& value) {
    if (!row.isAnswer || by == Writer::kRegistry) detail::writeRow<R>(row, value, record, by);
  });
}

template <class R>
std::string readDocument(R const& record) {
  std::string text;
  detail::printDocument(text, record);
  return text;
}

}  // namespace Agent
