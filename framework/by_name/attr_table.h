// The attribute table of a class: what its rows are for the description and for the operations by name.
#pragma once

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>
#include <vector>

#include "framework/by_name/generic_if.h"
#include "framework/by_name/rows.h"

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

/// Whether the member that a T returns is a collection, and whether that is one of a record: of values, or of children.
template <class T>
inline constexpr bool kIsMap = requires(T const& map) {
  map.begin()->fwkKey();
};
template <class Map>
inline constexpr bool kHasValues = requires {
  typename Map::Value;
};
template <class Map>
inline constexpr bool kIsOfRecord = kHasValues<Map> || requires {
  typename Map::Member;
};

/// What stands under a key: the value, or the member itself.
template <class Map, class Member>
GenericIf::Value contentOf(Member& member) {
  if constexpr (kHasValues<Map>)
    return member.value();
  else
    return &member;
}

template <class T>
GenericIf::Value toValue(T const& result) {
  if constexpr (kIsMap<T>) {
    std::vector<GenericIf::Value> members;
    for (auto& member : result) members.push_back(contentOf<T>(member));
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
/// Reads the whole of a collection, or what stands under a key.
template <class Key, auto Whole>
GenericIf::Value readCollection(PtrInterface& self, AttrRow const& row, AttrRow::Args args) {
  checkKey<Key>(row, args);
  auto const& map = (static_cast<typename MethodOf<Whole>::Class&>(self).*Whole)();
  if (args.empty()) return toValue(map);
  if (args.size() > 1) GenericIf::throwUnknownArgException(row.name, 1, args.size());
  if constexpr (kHasValues<typename MethodOf<Whole>::Result>)
    return map.value(argument<Key>(row, args, 0));
  else
    return map.member(argument<Key>(row, args, 0));
}
/// Removes the member of a key; without one all of them, in the collection's order.
template <class Key, auto Whole, auto Del>
GenericIf::Value removeFromCollection(PtrInterface& self, AttrRow const& row, AttrRow::Args args) {
  checkKey<Key>(row, args);
  if (!args.empty()) return call<Del>(self, row, args);
  auto& object = static_cast<typename MethodOf<Whole>::Class&>(self);
  for (typename MethodOf<Whole>::Result::IteratorConst at((object.*Whole)()); at; ++at)
    (object.*Del)(Key(at->fwkKey()));
  return {};
}

/// Enters what performs the operation of `M`, unless the class has no such member.
template <auto M>
constexpr void enter(AttrRow& row, GenericIf::Op op, AttrRow::Perform perform) {
  if (kIsNone<M>) return;
  row.on(op) = perform;
  row.ops |= 1U << static_cast<unsigned>(op);
}

/// Names the arguments of `M`, but for the first `Skip`.
template <auto M, std::size_t Skip, std::size_t N>
constexpr void nameArgs(AttrRow& row, std::array<std::string_view, N> const& names) {
  if constexpr (!kIsNone<M>) {
    static_assert(MethodOf<M>::arity == N + Skip, "one name for each argument");
    row.argCount = N;
    for (std::size_t i = 0; i < N; ++i) row.args[i] = {names[i], MethodOf<M>::types[i + Skip]};
  }
}

/// A walk over one collection, which may be of an object that is only read.
template <class Map>
class MapWalk final : public GenericIf::AttributeIterator {
 public:
  MapWalk(Map const& map, bool isConst) : at_(map), isConst_(isConst) {}
  explicit operator bool() const override { return static_cast<bool>(at_); }
  GenericIf::Value key() const override { return at_ ? GenericIf::Value(at_->fwkKey()) : GenericIf::Value(); }
  GenericIf::Value member() const override {
    if (!at_) return {};
    GenericIf::Value const content = contentOf<Map>(*at_);
    return isConst_ && kIsOfRecord<Map> ? content.forReading() : content;
  }
  MapWalk& operator++() override {
    ++at_;
    return *this;
  }

 private:
  typename Map::IteratorConst at_;
  bool isConst_;
};

/// A row of which the operations are still to be entered.
template <class T>
constexpr AttrRow rowOf(RowFlags const& row) {
  return {.name = row.name, .type = TypeName<T>::value, .isListed = row.isListed};
}

template <auto Read, auto Set, auto Del>
constexpr AttrRow attrRowOf(PlainRow<Read, Set, Del> const& of) {
  using Op = GenericIf::Op;
  AttrRow row = rowOf<typename MethodOf<Read>::Result>(of);
  enter<Read>(row, Op::kRead, &callWithoutKey<Read>);
  enter<Set>(row, Op::kSet, &call<Set>);
  enter<Del>(row, Op::kDelete, &callWithoutKey<Del>);
  return row;
}

template <auto Read, auto Is, auto New, auto Del, auto Change, std::size_t N>
constexpr AttrRow attrRowOf(ChildRow<Read, Is, New, Del, Change, N> const& of) {
  using Op = GenericIf::Op;
  constexpr auto kRead = [] {
    if constexpr (kIsNone<Change>)
      return Read;
    else
      return Change;
  }();
  AttrRow row = rowOf<typename MethodOf<kRead>::Result>(of);
  enter<kRead>(row, Op::kRead, &callWithoutKey<kRead>);
  enter<Is>(row, Op::kInstantiate, &call<Is>);
  enter<New>(row, Op::kNew, &call<New>);
  enter<Del>(row, Op::kDelete, &callWithoutKey<Del>);
  nameArgs<Is, 0>(row, of.args);
  row.holdsParts = !kIsNone<Change>;
  return row;
}

template <auto Whole, auto Is, auto Del, auto New, std::size_t N>
constexpr AttrRow attrRowOf(CollectionRow<Whole, Is, Del, New, N> const& of) {
  using Op = GenericIf::Op;
  using Map = typename MethodOf<Whole>::Result;
  using Key = std::remove_cvref_t<decltype(std::declval<Map const&>().begin()->fwkKey())>;
  constexpr bool kSets = std::is_void_v<typename MethodOf<Is>::Result>;
  AttrRow row = rowOf<Map>(of);
  row.flags = NoxAttr::kKeyed;
  enter<Whole>(row, Op::kRead, &readCollection<Key, Whole>);
  enter<Is>(
      row, kSets ? Op::kSet : Op::kInstantiate, kSets && MethodOf<Is>::arity == 1 ? &call<Is> : &callWithKey<Key, Is>);
  enter<New>(row, Op::kNew, &callWithKey<Key, New>);
  enter<Del>(row, Op::kDelete, &removeFromCollection<Key, Whole, Del>);
  if constexpr (!kSets) nameArgs<Is, 1>(row, of.args);
  row.holdsParts = kIsOfRecord<Map>;
  row.iterate = [](PtrInterface const& object, bool isConst) -> std::unique_ptr<GenericIf::AttributeIterator> {
    return std::make_unique<MapWalk<Map>>((static_cast<typename MethodOf<Whole>::Class const&>(object).*Whole)(),
                                          isConst);
  };
  return row;
}

template <auto Handler, auto Whole, class T, std::size_t N>
constexpr AttrRow attrRowOf(HandlerRow<Handler, Whole, T, N> const& of) {
  using Result = typename MethodOf<Handler>::Result;
  AttrRow row = rowOf<std::conditional_t<std::is_void_v<T>, Result, T>>(of);
  nameArgs<Handler, 0>(row, of.args);
  row.flags = NoxAttr::kHandler;
  enter<Handler>(
      row, GenericIf::Op::kCall, [](PtrInterface& self, AttrRow const& called, AttrRow::Args args) -> GenericIf::Value {
        if constexpr (!kIsNone<Whole>)
          if (args.empty()) return call<Whole>(self, called, args);
        return call<Handler>(self, called, args);
      });
  return row;
}

inline AttributeId attrIdOf(AttrRows const& table, std::string_view name) noexcept {
  AttrRow const* const row = ownAttrRow(table, name);
  return row != nullptr ? row->id : 0;
}
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

  constexpr AttrRows view() const { return {rows.data(), N, &detail::attrIdOf, &detail::attrNameOf}; }
};

/// The rows of one class, numbered consecutively from `first`. Two rows of one name do not compile.
template <class... Rows>
constexpr AttrTable<sizeof...(Rows)> attrTable(AttributeId first, Rows... rows) {
  AttrTable<sizeof...(Rows)> table{.rows = {detail::attrRowOf(rows)...}};
  for (AttrRow& row : table.rows) {
    row.id = first++;
    if (std::ranges::count(table.rows, row.name, &AttrRow::name) != 1) throw "two rows of one name";
  }
  return table;
}
/// The table of class R, of its `attributes()`.
template <class R>
inline constexpr auto kAttrTable = std::apply([](auto const&... rows) { return attrTable(kFirstAttribute, rows...); },
                                              kRows<R>);

/// The collections of records are named by what stands under a key.
template <class R, class Key, class T>
struct TypeName<ValueMap<R, Key, T>> : TypeName<HashMap<T, Key>> {};
template <class V, class Key>
struct TypeName<ChildMap<V, Key>> : TypeName<HashMap<V, Key>> {};

}  // namespace Nox
