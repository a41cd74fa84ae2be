// The kinds of places that the table of places is made of: for each, what its cells do.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <type_traits>

#include "agent/tree/codec_rows.h"
#include "agent/tree/kept_entry.h"
#include "agent/tree/places.h"
#include "framework/text/shared_text.h"

/// A kind is a class whose static members are named as the cells of a `PlaceRow`.
namespace Agent::PlaceKind {

using Controllerdb::AgentTables;
using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::sharedText;
using Nox::ValidPtr;

// What a document may hold, and which of it is a client's.

struct OfClient {
  static constexpr Nox::NoxType const* holder = nullptr;
  static std::optional<Json> input(Json const& document) { return document; }
};
struct AnyValue : OfClient {
  static DocumentText contentOf(CheckedDocument const& document) {
    return std::make_shared<std::string const>(jsonText(*std::any_cast<Json const*>(document)));
  }
  static CheckedDocument check(Json const* document, Writer /*by*/) {
    if (document != nullptr && document->is_null())
      throw InputError("", "expected any JSON value but null, found null");
    return document;
  }
};
struct TrueOrFalse : OfClient {
  static CheckedDocument check(Json const* document, Writer /*by*/) {
    return document != nullptr && requireBool(*document, "");
  }
};
struct OfRegistry {
  static CheckedDocument check(Json const* /*document*/, Writer by) {
    if (by == Writer::kOutside)
      throw PathRefusal("this path is the registry's own: it can be read, not put or deleted");
    return {};
  }
  static std::optional<Json> input(Json const& /*document*/) { return std::nullopt; }
  static void remove(TreeContent& /*content*/, Path const& /*path*/) {}
};

/// The document of a record of class R: the registry's are the fields in which it answers.
template <class R>
struct OfRecord {
  static constexpr bool isAnswered =
      std::apply([](auto const&... row) { return (row.isAnswer || ...); }, Nox::kRows<R>);
  static constexpr Nox::NoxType const* holder = isAnswered ? &R::noxType : nullptr;

  static CheckedDocument check(Json const* document, Writer by) {
    return document != nullptr ? CheckedDocument(DocumentOf<R>(*document, by)) : CheckedDocument();
  }
  static DocumentOf<R> const& checked(CheckedDocument const& document) {
    return std::any_cast<DocumentOf<R> const&>(document);
  }
  static std::optional<Json> input(Json const& document) { return withoutAnswers<R>(document); }
  static DocumentText textOf(Ptr<R> const& record) {
    return record ? std::make_shared<std::string const>(readDocument(*record)) : nullptr;
  }
  /// A record that already stands there is changed; a new one is complete when it is entered.
  template <class Enter>
  static void writeOrEnter(Ptr<R> const& present, Path const& path, CheckedDocument const& document, Writer by,
                           Enter const& enter) {
    if (present) return checked(document).writeTo(*present, by);
    ValidPtr<R> const made = Nox::make<R>(sharedText<Name>(path.names[0]));
    checked(document).writeTo(*made, by);
    enter(made);
  }
};

/// A record that is always there.
template <class R, ValidPtr<R> AgentTables::*Table>
struct Lasting : OfRecord<R> {
  static CheckedDocument check(Json const* document, Writer by) {
    if (document == nullptr) throw PathRefusal("this path is always there: it can be put, not deleted");
    return OfRecord<R>::check(document, by);
  }
  static void put(TreeContent& content, Path const& /*path*/, CheckedDocument const& document, Writer by) {
    OfRecord<R>::checked(document).writeTo(*(content.tables.*Table), by);
  }
  static void remove(TreeContent& /*content*/, Path const& /*path*/) {}
  static DocumentText text(TreeContent const& content, Path const& /*path*/) {
    return OfRecord<R>::textOf(content.tables.*Table);
  }
  static void list(TreeContent const& /*content*/, Place place, PathVisit const& visit) { visit(textAt(place, {})); }
};

/// The members of a keyed collection of one of the tables.
template <auto Table, auto Whole, auto Enter, auto Remove>
struct Members {
  static auto& table(TreeContent const& content) { return *(content.tables.*Table); }
  static auto& members(TreeContent const& content) { return (table(content).*Whole)(); }
  static auto keyOf(Path const& path) {
    using Key = detail::KeyOf<
        std::remove_cvref_t<std::invoke_result_t<decltype(Whole), decltype(*(std::declval<AgentTables&>().*Table))>>>;
    if constexpr (std::is_same_v<Key, SystemId>)
      return path.systemId;
    else
      return sharedText<Key>(path.names[0]);
  }
  template <class... Value>
  static auto enter(TreeContent& content, Value const&... value) {
    return (table(content).*Enter)(value...);
  }
  static void remove(TreeContent& content, Path const& path) { (table(content).*Remove)(keyOf(path)); }
  static void list(TreeContent const& content, Place place, PathVisit const& visit) {
    for (auto const& [key, member] : sortedByKey(members(content))) visit(textAt(place, {key}));
  }
};

/// Records that are members: those that a table makes of their keys, and those that are entered under their names.
template <class R, class Members>
struct Records : OfRecord<R>, Members {
  static_assert(!OfRecord<R>::isAnswered, "what the registry writes would not be found");

  static Ptr<R> recordAt(TreeContent const& content, Path const& path) {
    auto& members = Members::members(content);
    if constexpr (detail::kHasChildren<std::remove_cvref_t<decltype(members)>>)
      return members.member(Members::keyOf(path));
    else
      return members.value(Members::keyOf(path));
  }
  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer by) {
    if constexpr (detail::kHasChildren<std::remove_cvref_t<decltype(Members::members(content))>>)
      OfRecord<R>::checked(document).writeTo(*Members::enter(content, Members::keyOf(path)), by);
    else
      OfRecord<R>::writeOrEnter(
          recordAt(content, path), path, document, by, [&](auto const& made) { Members::enter(content, made); });
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    return OfRecord<R>::textOf(recordAt(content, path));
  }
};

template <class Members>
struct Flags : TrueOrFalse, Members {
  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer /*by*/) {
    Members::enter(content, Members::keyOf(path), std::any_cast<bool>(document));
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    auto const* const row = Members::members(content).find(Members::keyOf(path));
    return row != nullptr ? std::make_shared<std::string const>(row->value() ? "true" : "false") : nullptr;
  }
};

/// Members of the table of peers; what the heartbeats say stands beside it.
template <class Members>
struct Heartbeats : AnyValue, Members {
  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer /*by*/) {
    content.heartbeats.insert_or_assign(path.systemId.address().bits(), contentOf(document));
    Members::enter(content, path.systemId);
  }
  static void remove(TreeContent& content, Path const& path) {
    content.heartbeats.erase(path.systemId.address().bits());
    Members::remove(content, path);
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    auto const found = content.heartbeats.find(path.systemId.address().bits());
    return found != content.heartbeats.end() ? found->second : nullptr;
  }
};

/// The table of switches. A registry removes only the rows that it knows of, so that none are put back.
struct SwitchRows : OfRegistry {
  static constexpr Nox::NoxType const* holder = &ControllerRegistration::ControllerStatus::noxType;

  static void put(TreeContent& /*content*/, Path const& /*path*/, CheckedDocument const& /*document*/, Writer /*by*/) {}
  static DocumentText text(TreeContent const& content, Path const& path) {
    auto const& table = *content.tables.controllerStatus;
    auto const* const config = table.switchConfig().find(path.systemId);
    auto const* const status = table.switchStatus().find(path.systemId);
    auto const* const registered = table.registeredSwitch().find(path.systemId);
    if (config == nullptr && status == nullptr && registered == nullptr) return nullptr;
    // The name of the record in a row; null where the row is absent.
    auto const printName = [](std::string& to, auto const* row) {
      if (row != nullptr && row->value())
        detail::print(to, row->value()->name());
      else
        to += "null";
    };
    std::string text;
    detail::printObject(text, [&](auto begin) {
      begin("switchConfig");
      printName(text, config);
      begin("switchStatus");
      printName(text, status);
      begin("registeredSwitch");
      text += registered == nullptr ? "null" : registered->value() ? "true" : "false";
    });
    return std::make_shared<std::string const>(std::move(text));
  }
  static void list(TreeContent const& content, Place place, PathVisit const& visit) {
    auto const& table = *content.tables.controllerStatus;
    std::set<SystemId> ids;
    for (auto const& row : table.switchConfig()) ids.insert(row.fwkKey());
    for (auto const& row : table.switchStatus()) ids.insert(row.fwkKey());
    for (auto const& row : table.registeredSwitch()) ids.insert(row.fwkKey());
    for (SystemId const& id : ids) visit(toText({place, id}));
  }
};

/// Lists what lies in the subdirectories of class D. The slash behind their names decides about the order.
template <class D, class Map>
void listInside(Dir const& all, Map const& (D::*members)() const, Place place, PathVisit const& visit) {
  for (auto const& [name, entry] : sortedByKey(all.entries(), "/"))
    if (auto const inside = Nox::ptrCast<D>(entry->entityRef()))
      for (auto const& [key, member] : sortedByKey(((*inside).*members)()))
        visit(std::string(place.prefix()).append(name).append(key));
}

/// The directory of a registration.
struct Registration : OfClient {
  static Ptr<Dir> dirAt(TreeContent const& content, Path const& path) {
    return content.tables.registrationRootDir->entity<Dir>(sharedText<Name>(path.names[0]));
  }
  static CheckedDocument check(Json const* document, Writer /*by*/) {
    if (document != nullptr)
      throw PathRefusal("a registration has no document; expected registration/<switch>/<entry>");
    return {};
  }
  static void put(TreeContent& /*content*/, Path const& /*path*/, CheckedDocument const& /*document*/, Writer /*by*/) {}
  static void remove(TreeContent& content, Path const& path) {
    content.tables.registrationRootDir->entityDel(sharedText<Name>(path.names[0]));
  }
  static DocumentText text(TreeContent const& /*content*/, Path const& /*path*/) { return nullptr; }
  static void list(TreeContent const& content, Place place, PathVisit const& visit) {
    listInside(*content.tables.registrationRootDir, &Dir::entries, place, visit);
  }
};

/// One entry of a registration, of class E. A registration exists from its first entry on, and as long as it has one.
template <class E>
struct InRegistration {
  static Name nameOf(Path const& path) {
    std::string_view const pattern = path.place.pattern();
    return sharedText<Name>(pattern.ends_with('>') ? path.names[1] : pattern.substr(pattern.rfind('/') + 1));
  }
  static Ptr<E> entryAt(TreeContent const& content, Path const& path) {
    Ptr<Dir> const dir = Registration::dirAt(content, path);
    return dir ? dir->entity<E>(nameOf(path)) : nullptr;
  }
  static void enter(TreeContent& content, Path const& path, ValidPtr<E> const& made) {
    Ptr<Dir> dir = Registration::dirAt(content, path);
    if (!dir) {
      Name const name = sharedText<Name>(path.names[0]);
      dir = Nox::make<Dir>(name);
      content.tables.registrationRootDir->entityIs(name, dir);
    }
    dir->entityIs(nameOf(path), made);
  }
  static void remove(TreeContent& content, Path const& path) {
    Ptr<Dir> const dir = Registration::dirAt(content, path);
    if (!dir) return;
    dir->entityDel(nameOf(path));
    if (dir->entries().empty()) Registration::remove(content, path);
  }
  static void list(TreeContent const& /*content*/, Place /*place*/, PathVisit const& /*visit*/) {}
};

/// A record of a registration. The switch's name is the record's, also when its registration has gone.
template <class R>
struct SwitchRecord : OfRecord<R>, InRegistration<R> {
  using InRegistration<R>::entryAt;

  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer by) {
    OfRecord<R>::writeOrEnter(entryAt(content, path), path, document, by, [&](ValidPtr<R> const& made) {
      InRegistration<R>::enter(content, path, made);
    });
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    return OfRecord<R>::textOf(entryAt(content, path));
  }
};

struct KeptEntries : AnyValue, InRegistration<KeptEntry> {
  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer /*by*/) {
    if (auto const present = entryAt(content, path))
      present->contentIs(contentOf(document));
    else
      enter(content, path, Nox::make<KeptEntry>(nameOf(path), contentOf(document)));
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    auto const kept = entryAt(content, path);
    return kept ? kept->content() : nullptr;
  }
};

/// The controller's copies of the switches' service statuses.
struct ServiceStatuses : OfRegistry {
  using Copy = OfRecord<Controller::ServiceStatusV1>;
  using Copies = Controller::ServiceStatusDir;
  static constexpr Nox::NoxType const* holder = &Copies::noxType;

  static CheckedDocument check(Json const* document, Writer by) {
    OfRegistry::check(document, by);
    return Copy::check(document, by);
  }
  static void put(TreeContent& content, Path const& path, CheckedDocument const& document, Writer by) {
    Dir& all = *content.tables.allClientsServiceStatusDir;
    Name const switchName = sharedText<Name>(path.names[0]);
    auto dir = all.entity<Copies>(switchName);
    if (!dir) {
      dir = Nox::make<Copies>(switchName);
      all.entityIs(switchName, dir);
    }
    Copy::checked(document).writeTo(*dir->serviceIs(sharedText<Name>(path.names[1])), by);
  }
  static DocumentText text(TreeContent const& content, Path const& path) {
    auto const dir = content.tables.allClientsServiceStatusDir->entity<Copies>(Name(path.names[0]));
    return dir ? Copy::textOf(dir->service(Name(path.names[1]))) : nullptr;
  }
  static void list(TreeContent const& content, Place place, PathVisit const& visit) {
    listInside(*content.tables.allClientsServiceStatusDir, &Copies::service, place, visit);
  }
};

}  // namespace Agent::PlaceKind
