// The attribute table of a class: one row per attribute, which the description and the operations by name both read.
#pragma once

#include <array>
#include <bit>
#include <cstring>

#include "framework/collections.h"
#include "framework/generic_if.h"
#include "framework/type.h"

namespace Nox {

/// An argument of an attribute's operations.
struct ArgRow {
  std::string_view name;
  std::string_view type;
};

inline constexpr std::size_t kMaxArgs = 10;

/// One row: what the description says of an attribute, and the functions that operate on it.
struct AttrRow {
  using Op = GenericIf::Op;
  using Value = GenericIf::Value;
  using Args = std::span<Value const>;

  std::string_view name;
  std::string_view type;
  std::array<ArgRow, kMaxArgs> args{};
  std::size_t argCount = 0;
  unsigned flags = 0;
  unsigned ops = 0;  ///< One bit for each operation.
  AttributeId id = 0;
  bool isListed = true;  ///< False for an attribute that is reached by name and not described.
  /// Performs one of `ops`.
  Value (*perform)(AttrRow const& row, PtrInterface& self, Op op, Args args) = nullptr;
  std::unique_ptr<GenericIf::AttributeIterator> (*iterate)(PtrInterface const& self) = nullptr;

  constexpr bool does(Op op) const { return (ops >> static_cast<unsigned>(op) & 1) != 0; }
  /// Whether it is described with its arguments: an instantiating attribute or a handler.
  constexpr bool isInstantiating() const { return does(Op::kInstantiate) || does(Op::kCall); }
};

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

/// Calls a member; all arguments are converted before anything is called.
template <auto M, std::size_t... I>
GenericIf::Value callWith(PtrInterface& self, [[maybe_unused]] AttrRow::Args args,
                          std::index_sequence<I...> /*numbers*/) {
  using Called = MethodOf<M>;
  std::tuple<typename Called::template Arg<I>...> const converted{
      args[I].template as<typename Called::template Arg<I>>()...};
  auto& object = static_cast<typename Called::Class&>(self);
  if constexpr (std::is_void_v<typename Called::Result>) {
    (object.*M)(std::get<I>(converted)...);
    return {};
  } else {
    return toValue((object.*M)(std::get<I>(converted)...));
  }
}
template <auto M>
GenericIf::Value call(AttrRow const& row, PtrInterface& self, AttrRow::Args args) {
  if (args.size() != MethodOf<M>::arity) GenericIf::throwUnknownArgException(row.name, MethodOf<M>::arity, args.size());
  return callWith<M>(self, args, std::make_index_sequence<MethodOf<M>::arity>());
}

/// Stands in a row for a member that the class does not have.
inline constexpr std::nullptr_t kNone = nullptr;

/// Calls the member of one operation; an operation without a member does not come this far.
template <auto M>
GenericIf::Value callIf([[maybe_unused]] AttrRow const& row, [[maybe_unused]] PtrInterface& self,
                        [[maybe_unused]] AttrRow::Args args) {
  if constexpr (std::is_null_pointer_v<decltype(M)>)
    return {};
  else
    return call<M>(row, self, args);
}
template <auto M>
constexpr unsigned bitIf(GenericIf::Op op) {
  return std::is_null_pointer_v<decltype(M)> ? 0 : 1U << static_cast<unsigned>(op);
}

inline void checkNoKey(AttrRow const& row, AttrRow::Args args) {
  if (!args.empty()) GenericIf::throwBadIndexAttrException(row.name, {});
}
template <class Key>
void checkKey(AttrRow const& row, AttrRow::Args args) {
  if (!args.empty() && !args[0].is<Key>()) GenericIf::throwBadIndexAttrException(row.name, TypeName<Key>::value);
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
  row.ops = bitIf<Whole>(Op::kRead) | bitIf<Enter>(EnterOp) | bitIf<New>(Op::kNew) | bitIf<Del>(Op::kDelete);
  row.perform = [](AttrRow const& self, PtrInterface& object, Op op, AttrRow::Args args) -> GenericIf::Value {
    if (op != Op::kSet) checkKey<Key>(self, args);
    if (op == Op::kRead) return args.empty() ? call<Whole>(self, object, args) : call<Member>(self, object, args);
    if (op == EnterOp) return call<Enter>(self, object, args);
    if (op == Op::kNew) return callIf<New>(self, object, args);
    return args.empty() ? call<DelAll>(self, object, args) : call<Del>(self, object, args);
  };
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
  row.ops = detail::bitIf<Read>(Op::kRead) | detail::bitIf<Set>(Op::kSet) | detail::bitIf<Del>(Op::kDelete);
  row.perform = [](AttrRow const& self, PtrInterface& object, Op op, AttrRow::Args args) -> GenericIf::Value {
    if (op == Op::kSet) return detail::callIf<Set>(self, object, args);
    detail::checkNoKey(self, args);
    return op == Op::kRead ? detail::call<Read>(self, object, args) : detail::callIf<Del>(self, object, args);
  };
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
  row.ops = detail::bitIf<Read>(Op::kRead) | detail::bitIf<Is>(Op::kInstantiate) | detail::bitIf<New>(Op::kNew) |
            detail::bitIf<Del>(Op::kDelete);
  row.perform = [](AttrRow const& self, PtrInterface& object, Op op, AttrRow::Args args) -> GenericIf::Value {
    if (op == Op::kInstantiate) return detail::call<Is>(self, object, args);
    if (op == Op::kNew) return detail::call<New>(self, object, args);
    detail::checkNoKey(self, args);
    return op == Op::kRead ? detail::call<Read>(self, object, args) : detail::call<Del>(self, object, args);
  };
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
  row.ops = detail::bitIf<Handler>(Op::kCall);
  row.perform = [](AttrRow const& self, PtrInterface& object, Op /*op*/, AttrRow::Args args) -> GenericIf::Value {
    if constexpr (!std::is_null_pointer_v<decltype(Whole)>)
      if (args.empty()) return detail::call<Whole>(self, object, args);
    return detail::call<Handler>(self, object, args);
  };
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

/// The hash by which a row is found: of a name's length, its beginning and its end.
constexpr std::uint64_t attrHash(std::string_view name, std::uint64_t seed) noexcept {
  auto const word = [&](std::size_t from, std::size_t bytes) {
    std::uint64_t read = 0;
    if (std::is_constant_evaluated()) {
      for (std::size_t i = 0; i < bytes; ++i)
        read |= std::uint64_t{static_cast<unsigned char>(name[from + i])} << (8 * i);
    } else {
      std::memcpy(&read, name.data() + from, bytes);
    }
    return read;
  };
  static_assert(std::endian::native == std::endian::little, "the table is made by the compiler, and read as it stands");
  std::size_t const n = name.size();
  std::uint64_t mixed = n;
  if (n >= 8)
    mixed += word(0, 8) ^ std::rotl(word(n - 8, 8), 23);
  else if (n >= 4)
    mixed += word(0, 4) ^ std::rotl(word(n - 4, 4), 23);
  else
    for (char const c : name) mixed = mixed << 8 | static_cast<unsigned char>(c);
  return mixed * seed;
}

/// The rows of one class.
template <std::size_t N>
struct AttrTable {
  static constexpr std::size_t kSlots = std::bit_ceil(4 * N);
  static constexpr unsigned kShift = 64 - std::bit_width(kSlots - 1);
  static_assert(N < 256);

  std::array<AttrRow, N> rows{};
  std::array<std::uint8_t, kSlots> slots{};
  std::uint64_t seed = 0x9E3779B97F4A7C15;

  constexpr AttrRows view() const { return {rows.data(), slots.data(), seed, N, kShift}; }
};

/// The rows of one class, numbered consecutively from `first`.
template <class... Rows>
consteval AttrTable<sizeof...(Rows)> attrTable(AttributeId first, Rows... rows) {
  AttrTable<sizeof...(Rows)> table{.rows = {rows...}};
  for (AttrRow& row : table.rows) row.id = first++;
  auto const hasPlacedAll = [&table] {
    table.slots = {};
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
      std::uint8_t& slot = table.slots[attrHash(table.rows[i].name, table.seed) >> table.kShift];
      if (slot != 0) return false;
      slot = static_cast<std::uint8_t>(i + 1);
    }
    return true;
  };
  // Seeds are tried until every name has a slot of its own: a few dozen, as there are four slots for a name.
  while (!hasPlacedAll()) table.seed += 0x9E3779B97F4A7C16;
  return table;
}

}  // namespace Nox
