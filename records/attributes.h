// Rows of the records' attribute tables: what stands once per attribute, for everything that walks a record.
#pragma once

#include <string_view>

#include "framework/core/collections.h"

namespace Nox {

/// A scalar: its reader, and its mutator. `document` says whether the attribute is part of the record's document.
template <auto Read, auto Write>
struct ScalarRow {
  static constexpr auto read = Read;
  static constexpr auto write = Write;
  std::string_view name;
  bool document = true;
};
/// A child record, always reached through its owner; null where the owner has none yet. `change` reads it as one that
/// may be changed; `make` puts one of that name there, and is null where there always is one.
template <auto Read, auto Change, auto Make>
struct ChildRow {
  static constexpr auto read = Read;
  static constexpr auto change = Change;
  static constexpr auto make = Make;
  std::string_view name;
  bool document = true;
};
/// A keyed collection: the reader of the whole, the mutator that enters one member, the one that removes one.
template <auto Read, auto Enter, auto Remove>
struct KeyedRow {
  static constexpr auto read = Read;
  static constexpr auto enter = Enter;
  static constexpr auto remove = Remove;
  std::string_view name;
  bool document = true;
};

/// The row of an attribute in which the registry answers: documents show it, and no client may write it.
template <class Row>
struct AnswerRow : Row {};

template <auto Read, auto Write>
constexpr ScalarRow<Read, Write> scalar(std::string_view name) {
  return {name};
}
template <auto Read, auto Change, auto Make = nullptr>
constexpr ChildRow<Read, Change, Make> childRecord(std::string_view name) {
  return {name};
}
template <auto Read, auto Enter, auto Remove>
constexpr KeyedRow<Read, Enter, Remove> keyedBy(std::string_view name) {
  return {name};
}
template <class Row>
constexpr AnswerRow<Row> answer(Row row) {
  return {row};
}
/// The row of an attribute that no document shows.
template <class Row>
constexpr Row internal(Row row) {
  row.document = false;
  return row;
}

/// Chooses, among a child's readers, the one that only reads the child.
template <class R, class C>
consteval auto childRead(Ptr<C> (R::*read)() const) {
  return read;
}

/// Chooses, among a child's readers, the one that may change the child.
template <class R, class C>
consteval auto childOf(Ptr<C> (R::*read)()) {
  return read;
}

}  // namespace Nox
