// The attribute table of a class: one row per attribute, which the description and the operations by name both read.
#pragma once

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>
#include <vector>

#include "framework/by_name/generic_if.h"
#include "framework/core/collections.h"
#include "framework/core/type.h"

namespace Nox {

namespace detail {

/// A member function taken apart. Its arguments as they are converted: without reference and const.
template <class F>
struct Method;
template <class C, class R, class... A>
struct Method<R (C::*)(A...)> {
  using Class = C;
  using Result = std::remove_cvref_t<R>;
  static constexpr std::size_t arity = sizeof...(A);
  static constexpr std::array<std::string_view, sizeof...(A)> types{TypeName<std::remove_cvref_t<A>>::value...};
  template <std::size_t I>
  using Arg = std::remove_cvref_t<std::tuple_element_t<I, std::tuple<A...>>>;
};
template <class C, class R, class... A>
struct Method<R (C::*)(A...) noexcept> : Method<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct Method<R (C::*)(A...) const> : Method<R (C::*)(A...)> {};
template <class C, class R, class... A>
struct Method<R (C::*)(A...) const noexcept> : Method<R (C::*)(A...)> {};

template <auto M>
using MethodOf = Method<decltype(M)>;

template <class T>
inline constexpr bool kIsMap = false;
template <class V, class K>
inline constexpr bool kIsMap<HashMap<V, K>> = true;

template <class T>
GenericIf::Value toValue(T const& result) {
  if constexpr (kIsMap<T>) {
    std::vector<GenericIf::Value> members;
    for (auto& member : result) members.emplace_back(&member);
    return Ptr<GenericIf::List_>(make<GenericIf::List_>(std::move(members)));
  } else {
    return result;
  }
}

/// An argument as a T. What is no T is refused with the names of the attribute and of the argument.
template <class T>
T argument(AttrRow const& row, AttrRow::Args args, std::size_t number) {
  try {
    return args[number].as<T>();
  } catch (TypeException const& wrong) {
    // The names are those of the last arguments; in front of them stands what has none, a key or the value that is set.
    std::size_t const unnamed = args.size() - std::min(args.size(), row.argCount);
    GenericIf::throwTypeException(row.name, number < unnamed ? "value" : row.args[number - unnamed].name, wrong);
  }
}

/// Calls a member; all arguments are converted before anything is called.
template <auto M, std::size_t... I>
GenericIf::Value callWith(PtrInterface& self, [[maybe_unused]] AttrRow const& row, [[maybe_unused]] AttrRow::Args args,
                          std::index_sequence<I...> /*numbers*/) {
  using Called = MethodOf<M>;
  std::tuple<typename Called::template Arg<I>...> const converted{
      argument<typename Called::template Arg<I>>(row, args, I)...};
  auto& object = static_cast<typename Called::Class&>(self);
  if constexpr (std::is_void_v<typename Called::Result>) {
    (object.*M)(std::get<I>(converted)...);
    return {};
  } else {
    return toValue((object.*M)(std::get<I>(converted)...));
  }
}

/// Stands in a row for a member that the class does not have.
inline constexpr std::nullptr_t kNone = nullptr;
template <auto M>
inline constexpr bool kIsNone = std::is_null_pointer_v<decltype(M)>;

template <auto M>
GenericIf::Value call([[maybe_unused]] PtrInterface& self, [[maybe_unused]] AttrRow const& row,
                      [[maybe_unused]] AttrRow::Args args) {
  if constexpr (kIsNone<M>) {
    return {};
  } else {
    constexpr std::size_t kArity = MethodOf<M>::arity;
    if (args.size() != kArity) GenericIf::throwUnknownArgException(row.name, kArity, args.size());
    return callWith<M>(self, row, args, std::make_index_sequence<kArity>());
  }
}

inline void checkNoKey(AttrRow const& row, AttrRow::Args args) {
  if (!args.empty()) GenericIf::throwBadIndexAttrException(row.name, {}, args[0].type());
}
template <class Key>
void checkKey(AttrRow const& row, AttrRow::Args args) {
  if (!args.empty() && !args[0].is<Key>())
    GenericIf::throwBadIndexAttrException(row.name, TypeName<Key>::value, args[0].type());
}

template <auto M>
GenericIf::Value callWithoutKey(PtrInterface& self, AttrRow const& row, AttrRow::Args args) {
  checkNoKey(row, args);
  return call<M>(self, row, args);
}
template <class Key, auto M>
GenericIf::Value callWithKey(PtrInterface& self, AttrRow const& row, AttrRow::Args args) {
  checkKey<Key>(row, args);
  return call<M>(self, row, args);
}
/// Calls `One` for the member of a key, and `All` without a key.
template <class Key, auto All, auto One>
GenericIf::Value callForKeyOrAll(PtrInterface& self, AttrRow const& row, AttrRow::Args args) {
  checkKey<Key>(row, args);
  return args.empty() ? call<All>(self, row, args) : call<One>(self, row, args);
}

/// Enters what performs the operation of `M`, unless the class has no such member.
template <auto M>
constexpr void enter(AttrRow& row, GenericIf::Op op, AttrRow::Perform perform) {
  if (kIsNone<M>) return;
  row.on(op) = perform;
  row.ops |= 1U << static_cast<unsigned>(op);
}

/// Names the arguments of `M`, but for the first `skip`.
template <auto M, class... N>
constexpr void nameArgs(AttrRow& row, std::size_t skip, N... names) {
  std::array<std::string_view, sizeof...(N)> const given{names...};
  row.argCount = given.size();
  for (std::size_t i = 0; i < given.size(); ++i) row.args[i] = {given[i], MethodOf<M>::types[i + skip]};
}

/// A walk over one collection.
template <class Map>
class MapWalk final : public GenericIf::AttributeIterator {
 public:
  explicit MapWalk(Map const& map) : at_(map) {}
  explicit operator bool() const override { return static_cast<bool>(at_); }
  GenericIf::Value key() const override { return at_ ? GenericIf::Value(at_->fwkKey()) : GenericIf::Value(); }
  GenericIf::Value member() const override { return at_.member(); }
  MapWalk& operator++() override {
    ++at_;
    return *this;
  }

 private:
  typename Map::IteratorConst at_;
};

/// What the two kinds of keyed rows share: readers of the whole and of one member, the removals, the walk. `Enter` is
/// the mutator that enters a member by `EnterOp`.
template <auto Whole, auto Member, GenericIf::Op EnterOp, auto Enter, auto New, auto Del, auto DelAll>
constexpr AttrRow keyedRow(std::string_view name) {
  using Op = GenericIf::Op;
  using Map = typename MethodOf<Whole>::Result;
  using Key = typename MethodOf<Member>::template Arg<0>;
  AttrRow row{.name = name, .type = TypeName<Map>::value};
  row.flags = NoxAttr::kKeyed;
  enter<Whole>(row, Op::kRead, &callForKeyOrAll<Key, Whole, Member>);
  enter<Enter>(row, EnterOp, EnterOp == Op::kSet ? &call<Enter> : &callWithKey<Key, Enter>);
  enter<New>(row, Op::kNew, &callWithKey<Key, New>);
  enter<Del>(row, Op::kDelete, &callForKeyOrAll<Key, DelAll, Del>);
  row.iterate = [](PtrInterface const& object) -> std::unique_ptr<GenericIf::AttributeIterator> {
    return std::make_unique<MapWalk<Map>>((static_cast<typename MethodOf<Whole>::Class const&>(object).*Whole)());
  };
  return row;
}

}  // namespace detail

/// The row of a plain attribute: `x()`, and `xIs(value)` and `xDel()` where the class has them.
template <auto Read, auto Set = detail::kNone, auto Del = detail::kNone>
constexpr AttrRow plain(std::string_view name) {
  using Op = GenericIf::Op;
  AttrRow row{.name = name, .type = TypeName<typename detail::MethodOf<Read>::Result>::value};
  detail::enter<Read>(row, Op::kRead, &detail::callWithoutKey<Read>);
  detail::enter<Set>(row, Op::kSet, &detail::call<Set>);
  detail::enter<Del>(row, Op::kDelete, &detail::callWithoutKey<Del>);
  return row;
}

/// The row of an instantiating attribute: `x()`, `xIs(args...)`, `newX(args...)` and `xDel()`, with the names of the
/// constructor arguments in order.
template <auto Read, auto Is, auto New, auto Del, class... N>
constexpr AttrRow child(std::string_view name, N... argNames) {
  static_assert(detail::MethodOf<Is>::arity == sizeof...(N), "one name for each constructor argument");
  using Op = GenericIf::Op;
  AttrRow row{.name = name, .type = TypeName<typename detail::MethodOf<Read>::Result>::value};
  detail::nameArgs<Is>(row, 0, argNames...);
  detail::enter<Read>(row, Op::kRead, &detail::callWithoutKey<Read>);
  detail::enter<Is>(row, Op::kInstantiate, &detail::call<Is>);
  detail::enter<New>(row, Op::kNew, &detail::call<New>);
  detail::enter<Del>(row, Op::kDelete, &detail::callWithoutKey<Del>);
  return row;
}

/// The row of a collection: `x()`, `x(key)`, `xIs(value)`, `xDel(key)` and `xDelAll()`.
template <auto Whole, auto Member, auto Is, auto Del, auto DelAll>
constexpr AttrRow keyedPlain(std::string_view name) {
  return detail::keyedRow<Whole, Member, GenericIf::Op::kSet, Is, detail::kNone, Del, DelAll>(name);
}

/// The row of an instantiating collection: `x()`, `x(key)`, `xIs(key, args...)`, `newX(key, args...)`, `xDel(key)` and
/// `xDelAll()`.
template <auto Whole, auto Member, auto Is, auto New, auto Del, auto DelAll, class... N>
constexpr AttrRow keyedChild(std::string_view name, N... argNames) {
  static_assert(detail::MethodOf<Is>::arity == sizeof...(N) + 1, "one name for each constructor argument");
  AttrRow row = detail::keyedRow<Whole, Member, GenericIf::Op::kInstantiate, Is, New, Del, DelAll>(name);
  detail::nameArgs<Is>(row, 1, argNames...);
  return row;
}

/// The row of a handler that may be called, with the names of its arguments; `Whole` is what the call without an
/// argument stands for.
template <auto Handler, auto Whole = detail::kNone, class... N>
constexpr AttrRow handler(std::string_view name, N... argNames) {
  static_assert(detail::MethodOf<Handler>::arity == sizeof...(N), "one name for each argument");
  using Op = GenericIf::Op;
  AttrRow row{.name = name, .type = TypeName<typename detail::MethodOf<Handler>::Result>::value};
  detail::nameArgs<Handler>(row, 0, argNames...);
  row.flags = NoxAttr::kHandler;
  detail::enter<Handler>(
      row, Op::kCall, [](PtrInterface& self, AttrRow const& called, AttrRow::Args args) -> GenericIf::Value {
        if constexpr (!detail::kIsNone<Whole>)
          if (args.empty()) return detail::call<Whole>(self, called, args);
        return detail::call<Handler>(self, called, args);
      });
  return row;
}

/// The row of a switch: an attribute of type bool that is called with the new state.
template <auto Switch>
constexpr AttrRow toggle(std::string_view name) {
  AttrRow row = handler<Switch>(name, "bool");
  row.type = TypeName<bool>::value;
  return row;
}

/// The row of an attribute that is reached by name and not described.
constexpr AttrRow unlisted(AttrRow row) {
  row.isListed = false;
  return row;
}

/// Chooses, among a collection's readers, the one of one member.
template <class C, class V, class K>
consteval auto memberOf(Ptr<V> (C::*read)(K const&) const) {
  return read;
}

namespace detail {
inline std::string_view attrNameOf(AttrRows const& table, AttributeId id) noexcept {
  AttrRow const* const row = ownAttrRow(table, id);
  return row != nullptr ? row->name : std::string_view();
}
}  // namespace detail

/// The rows of one class.
template <std::size_t N>
struct AttrTable {
  static_assert(N > 0);

  std::array<AttrRow, N> rows{};

  constexpr AttrRows view() const { return {rows.data(), N, &detail::attrNameOf}; }
};

/// The rows of one class, numbered consecutively from `first`. Two rows of one name do not compile.
template <class... Rows>
consteval AttrTable<sizeof...(Rows)> attrTable(AttributeId first, Rows... rows) {
  AttrTable<sizeof...(Rows)> table{.rows = {rows...}};
  for (AttrRow& row : table.rows) {
    row.id = first++;
    if (std::ranges::count(table.rows, row.name, &AttrRow::name) != 1) throw "two rows of one name";
  }
  return table;
}

}  // namespace Nox
