// The rows of attribute tables: what stands once per attribute of a record or a machine. Documents, the operations by
// name, the ids and the descriptions are made of them.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>

#include "framework/core/collections.h"

namespace Nox {

/// A class's own attributes are numbered from here, in the order of their rows.
inline constexpr AttributeId kFirstAttribute = 256;

/// Stands in a row for a member that the class does not have.
inline constexpr std::nullptr_t kNone = nullptr;
template <auto M>
inline constexpr bool kIsNone = std::is_null_pointer_v<decltype(M)>;

/// What every row states.
struct RowFlags {
  std::string_view name;
  bool isListed = true;    ///< False for an attribute that is reached by name and not described.
  bool isDocument = true;  ///< False for an attribute that no document of the record shows.
  bool isAnswer = false;   ///< The registry answers in it: documents show it, and no client may write it.
};

/// A plain attribute.
template <auto Read, auto Set, auto Del>
struct PlainRow : RowFlags {
  static constexpr auto read = Read;
  static constexpr auto set = Set;
};
/// An object that is made from arguments, or always there. `change`, where the class has it, reads what may be changed.
template <auto Read, auto Is, auto New, auto Del, auto Change, std::size_t N>
struct ChildRow : RowFlags {
  static constexpr auto read = Read;
  static constexpr auto is = Is;
  static constexpr auto change = Change;
  std::array<std::string_view, N> args{};
};
/// A keyed collection.
template <auto Whole, auto Is, auto Del, auto New, std::size_t N>
struct CollectionRow : RowFlags {
  static constexpr auto whole = Whole;
  static constexpr auto enter = Is;
  static constexpr auto remove = Del;
  std::array<std::string_view, N> args{};
};
/// What is called. A row of type `T` is described as an attribute of that type.
template <auto Handler, auto Whole, class T, std::size_t N>
struct HandlerRow : RowFlags {
  std::array<std::string_view, N> args{};
};

// The kinds of rows that a record has.
template <class R>
concept IsPlainRow = requires {
  R::set;
};
template <class R>
concept IsChildRow = requires {
  R::change;
};
template <class R>
concept IsCollectionRow = requires {
  R::whole;
};

/// The row of a plain attribute: `x()`, and `xIs(value)` and `xDel()` where the class has them.
template <auto Read, auto Set = kNone, auto Del = kNone>
constexpr PlainRow<Read, Set, Del> plain(std::string_view name) {
  return {{name}};
}
/// The row of an instantiating attribute: `x()`, `xIs(args...)`, `newX(args...)` and `xDel()`, with the names of the
/// constructor arguments in order.
template <auto Read, auto Is, auto New, auto Del, class... N>
constexpr ChildRow<Read, Is, New, Del, kNone, sizeof...(N)> child(std::string_view name, N... argNames) {
  return {{name}, {argNames...}};
}
/// The row of a child record: null where the owner has none. `Read` and `Change` read it, the one from a constant
/// owner; `xIs(name)` puts one there, and is absent where there always is one.
template <auto Read, auto Change, auto Is = kNone, auto Del = kNone, class... N>
constexpr ChildRow<Read, Is, kNone, Del, Change, sizeof...(N)> childRecord(std::string_view name, N... argNames) {
  return {{name}, {argNames...}};
}
/// The row of a collection: the reader of the whole, `xIs(value)`, `xIs(key, value)` or `xIs(key, args...)`,
/// `xDel(key)`, and `newX(key, args...)` where the class has it, with the names of the arguments behind a key.
template <auto Whole, auto Is, auto Del, auto New = kNone, class... N>
constexpr CollectionRow<Whole, Is, Del, New, sizeof...(N)> collection(std::string_view name, N... argNames) {
  return {{name}, {argNames...}};
}
/// The row of a handler that may be called, with the names of its arguments; `Whole` is what the call without an
/// argument stands for.
template <auto Handler, auto Whole = kNone, class... N>
constexpr HandlerRow<Handler, Whole, void, sizeof...(N)> handler(std::string_view name, N... argNames) {
  return {{name}, {argNames...}};
}
/// The row of a switch: an attribute of type bool that is called with the new state.
template <auto Switch>
constexpr HandlerRow<Switch, kNone, bool, 1> toggle(std::string_view name) {
  return {{name}, {"bool"}};
}

/// The row of an attribute that is reached by name and not described.
template <class Row>
constexpr Row unlisted(Row row) {
  row.isListed = false;
  return row;
}
/// The row of an attribute in which the registry answers.
template <class Row>
constexpr Row answer(Row row) {
  row.isAnswer = true;
  return row;
}
/// The row of an attribute that no document shows.
template <class Row>
constexpr Row internal(Row row) {
  row.isDocument = false;
  return row;
}

/// The rows of class R, in the order of their ids.
template <class R>
inline constexpr auto kRows = R::attributes();

/// The id of R's attribute of that name. A name that its rows do not have does not compile.
template <class R>
consteval AttributeId attributeId(std::string_view name) {
  AttributeId id = kFirstAttribute;
  bool const isFound =
      std::apply([&](auto const&... row) { return ((row.name == name || (++id, false)) || ...); }, kRows<R>);
  if (!isFound) throw "no attribute of that name";
  return id;
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
