// The generic interface: operations on an object's attributes by name, for callers that know nothing of its class.
#pragma once

#include <array>
#include <concepts>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "framework/core/ptr.h"
#include "framework/core/turn.h"
#include "framework/core/type.h"
#include "framework/core/type_name.h"
#include "framework/text/name.h"
#include "framework/text/text_form.h"

namespace Nox {

struct AttrRow;

/// The object that a text names, in the form that `valueToStrepOfRawPtr` prints: null unless it is a live framework
/// object at this moment, whatever the number. Throws RangeException "junk at column ... deserializing ..." (error id
/// 12) for a text with more in it than a number. Event thread only.
NOX_EXPORT Ptr<PtrInterface> sequenceToValueOfPtr(std::string_view text);
/// The same as a T: null if the object is of another class.
template <StartsWithPtrInterface T>
Ptr<T> sequenceToValueOfPtr(std::string_view text) {
  return ptrCast<T>(sequenceToValueOfPtr(text));
}

/// What an object's attributes are reached through when its class is not known. Holds the object, which must be
/// complete, and asks its class once; through a pointer to const it is read alone. An operation that is refused throws
/// one of the framework's exceptions and changes nothing.
class NOX_EXPORT GenericIf {
 public:
  /// What can be done with an attribute. kInstantiate is its `xIs`, kNew its `newX`.
  enum class Op : std::uint8_t { kRead, kSet, kInstantiate, kNew, kDelete, kCall };
  /// The names of the operations, in that order.
  static constexpr std::array<std::string_view, 6> kOpNames{"read", "set", "instantiate", "new", "delete", "call"};
  class Value;
  class List_;
  class AttributeIterator;

  explicit GenericIf(Ptr<PtrInterface> const& object);
  explicit GenericIf(Ptr<PtrInterface const> const& object);
  /// Of a pointer to a class that is known, as `make` returns it: to const or not, as that pointer is.
  template <std::derived_from<PtrInterface> T>
    requires(!std::is_const_v<T>)
  explicit GenericIf(Ptr<T> const& object) : GenericIf(Ptr<PtrInterface>(object)) {}
  template <std::derived_from<PtrInterface> T>
  explicit GenericIf(Ptr<T const> const& object) : GenericIf(Ptr<PtrInterface const>(object)) {}

  Ptr<PtrInterface const> const& object() const noexcept { return object_; }
  bool isConst() const noexcept { return isConst_; }

  /// The id of the attribute of that name; 0, which no attribute has, for a name that the class does not know.
  AttributeId attributeId(std::string_view name) const;
  AttributeId attributeId(StringN<unsigned char> const& name) const { return attributeId(name.view()); }
  /// The name of an attribute; empty for an id that the class does not know.
  String8 attributeString(AttributeId id) const;

  /// Performs one operation, as a turn, with its arguments in the order of the attribute's description; a keyed
  /// attribute takes its key first, and stands for the whole without one. Returns what the member returns; null for
  /// nothing. Throws OpNotSupportedException for an attribute that the class does not have or that does not do this,
  /// UnknownArgException for too many or too few arguments, BadIndexAttrException for a key where there is none or of
  /// another type, TypeException for an argument of another type, ConstException for a change through a const pointer;
  /// and whatever the member throws.
  Value attributeOp(AttributeId id, Op op, std::span<Value const> args) const;
  Value attributeOp(std::string_view name, Op op, std::span<Value const> args) const;
  Value attributeOp(AttributeId id, Op op, std::initializer_list<Value> args = {}) const;
  Value attributeOp(std::string_view name, Op op, std::initializer_list<Value> args = {}) const;

  /// A walk over the members of a collection attribute, in the collection's order; any member may be removed under it.
  /// The collection stays alive with the object. Throws BadIndexAttrException for an attribute that is none.
  std::unique_ptr<AttributeIterator> attributeIteratorConst(AttributeId id) const;
  std::unique_ptr<AttributeIterator> attributeIteratorConst(std::string_view name) const;

  [[noreturn]] static void throwConstException();
  /// A value is not `expected`, which is a type, "List", or "name" for an element without one; `found` is its type.
  [[noreturn]] static void throwTypeException(std::string_view expected, std::string_view found);
  /// The same for an argument of an attribute's operation: what is wrong with it stands in `wrong`.
  [[noreturn]] static void throwTypeException(std::string_view attribute, std::string_view argument,
                                              Exception const& wrong);
  [[noreturn]] static void throwOpNotSupportedException(std::string_view attribute, Op op);
  [[noreturn]] static void throwUnknownArgException(std::string_view attribute, std::size_t known, std::size_t given);
  /// `expected` is the type of the attribute's key, empty for an attribute without one; `found` is that of the key that
  /// was given, empty where none was.
  [[noreturn]] static void throwBadIndexAttrException(std::string_view attribute, std::string_view expected,
                                                      std::string_view found = {});

 private:
  Value perform(AttrRow const& row, Op op, std::span<Value const> args) const;

  Ptr<PtrInterface const> object_;
  NoxType const* type_;
  bool isConst_;
};

/// A generic value: nothing, a flag, a number, a time span, a text, or an object. Names, and types with a text form,
/// travel as text; a text is also taken for the pointer that it spells.
class NOX_EXPORT GenericIf::Value {
 public:
  Value() noexcept = default;
  Value(std::nullptr_t) noexcept {}
  template <std::same_as<bool> B>
  Value(B value) noexcept : value_(value) {}
  Value(unsigned value) noexcept : value_(value) {}
  Value(Seconds value) noexcept : value_(value) {}
  Value(char const* text) : value_(String8(text)) {}
  Value(StringN<unsigned char> const& text) : value_(String8(text)) {}
  template <HasTextForm T>
  Value(T const& value) : value_(TextForm<T>::print(value)) {}
  template <std::derived_from<PtrInterface> T>
  Value(Ptr<T> const& object) {
    if (object) value_ = Ptr<PtrInterface>(object);
  }
  template <std::derived_from<PtrInterface> T>
  Value(Ptr<T const> const& object) {
    if (object) value_ = Ptr<PtrInterface const>(object);
  }
  template <std::derived_from<PtrInterface> T>
  Value(T* object) : Value(Ptr<T>(object)) {}

  bool isNull() const noexcept { return std::holds_alternative<std::monostate>(value_); }
  /// The name of the value's type; for an object that of its class, "null" for nothing.
  std::string_view type() const noexcept;
  /// The object, for reading; null for any other value.
  Ptr<PtrInterface const> object() const noexcept;
  /// The value through which no object is changed: that of a pointer to const, or a list of such values.
  Value forReading() const;

  /// The value as a T: bool, unsigned, Seconds (from a number too), Name, String8, a type with a text form, a counted
  /// pointer (from null, an object, or the text that spells one; a text that spells an object of another class, or
  /// none, is null), or the names of a list's elements. Throws TypeException, and ConstException where a pointer to
  /// const is wanted for changes.
  template <class T>
  T as() const;
  /// Whether the value can be had as a key of type T.
  template <class T>
  bool is() const;

  friend bool operator==(Value const&, Value const&) = default;

 private:
  template <class T>
  struct As;

  std::variant<std::monostate, bool, unsigned, Seconds, String8, Ptr<PtrInterface>, Ptr<PtrInterface const>> value_;
};

/// Prints a value as one reads it: text as it stands, an object as its address.
NOX_EXPORT std::ostream& operator<<(std::ostream& out, GenericIf::Value const& value);

/// A list of values, itself an object: "Nox::GenericIf::List_".
class NOX_EXPORT GenericIf::List_ final : public PtrInterface {
 public:
  static NoxType noxType;
  static NoxType const& _fwkType() { return noxType; }
  NoxType const& fwkType() const override { return noxType; }

  explicit List_(std::vector<Value> elements) : elements_(std::move(elements)) {}
  std::vector<Value> const& elements() const noexcept { return elements_; }

  /// The names of a list's elements, each read through its attribute "name". Throws TypeException for a value that is
  /// no list ("List"), and for an element that has no name ("name").
  static std::vector<Name> names(Value const& list);

 private:
  std::vector<Value> elements_;
};

/// A position in a collection attribute.
class NOX_EXPORT GenericIf::AttributeIterator {
 public:
  AttributeIterator() = default;
  AttributeIterator(AttributeIterator const&) = delete;
  AttributeIterator& operator=(AttributeIterator const&) = delete;
  virtual ~AttributeIterator();

  virtual explicit operator bool() const = 0;
  /// The key and the object of the member under the position.
  virtual Value key() const = 0;
  virtual Value member() const = 0;
  virtual AttributeIterator& operator++() = 0;
};

/// An argument of an attribute's operations.
struct ArgRow {
  std::string_view name;
  std::string_view type;
};

inline constexpr std::size_t kMaxArgs = 10;

/// One row of a class's attribute table: what the description says of an attribute, and the functions that operate on
/// it. `attrTable` fills in the id.
struct AttrRow {
  using Op = GenericIf::Op;
  using Value = GenericIf::Value;
  using Args = std::span<Value const>;
  using Perform = Value (*)(PtrInterface& self, AttrRow const& row, Args args);

  std::string_view name;
  std::string_view type;
  std::array<Perform, 6> perform{};  ///< By operation; null for one that the attribute does not have.
  unsigned ops = 0;                  ///< One bit for each operation.
  unsigned flags = 0;
  std::unique_ptr<GenericIf::AttributeIterator> (*iterate)(PtrInterface const& self, bool isConst) = nullptr;
  std::array<ArgRow, kMaxArgs> args{};
  std::size_t argCount = 0;
  AttributeId id = 0;
  bool isListed = true;     ///< False for an attribute that is reached by name and not described.
  bool holdsParts = false;  ///< What it holds belongs to the object, and is only read where that is only read.

  constexpr Perform& on(Op op) { return perform[static_cast<std::size_t>(op)]; }
  constexpr Perform on(Op op) const { return perform[static_cast<std::size_t>(op)]; }
  constexpr bool does(Op op) const { return (ops >> static_cast<unsigned>(op) & 1U) != 0; }
  /// Whether it is described with its arguments: an instantiating attribute or a handler.
  constexpr bool isInstantiating() const { return does(Op::kInstantiate) || does(Op::kCall); }
};

/// The row of an attribute of the class or of those it derives from; null if there is none.
NOX_EXPORT AttrRow const* attrRow(NoxType const& type, std::string_view attribute) noexcept;
NOX_EXPORT AttrRow const* attrRow(NoxType const& type, AttributeId id) noexcept;
/// The same of the class's own attributes alone.
constexpr AttrRow const* ownAttrRow(AttrRows const& rows, AttributeId id) noexcept {
  return rows.count != 0 && id - rows.rows[0].id < rows.count ? &rows.rows[id - rows.rows[0].id] : nullptr;
}
constexpr AttrRow const* ownAttrRow(AttrRows const& rows, std::string_view attribute) noexcept {
  for (AttrRow const* row = rows.rows; row != rows.rows + rows.count; ++row)
    if (row->name == attribute) return row;
  return nullptr;
}

/// The generic interface of an entity: names of attributes are the entity's own answer.
class NOX_EXPORT GenericIfEntity : public GenericIf {
 public:
  explicit GenericIfEntity(Ptr<Entity> const& entity);
  explicit GenericIfEntity(Ptr<Entity const> const& entity);
  template <std::derived_from<Entity> T>
    requires(!std::is_const_v<T>)
  explicit GenericIfEntity(Ptr<T> const& entity) : GenericIfEntity(Ptr<Entity>(entity)) {}
  template <std::derived_from<Entity> T>
  explicit GenericIfEntity(Ptr<T const> const& entity) : GenericIfEntity(Ptr<Entity const>(entity)) {}

  String8 attributeString(AttributeId id) const;
};

/// The generic interface of every other object, a state machine above all.
class NOX_EXPORT GenericIfPtrInterface : public GenericIf {
 public:
  using GenericIf::GenericIf;
};

template <class T>
struct GenericIf::Value::As {
  static std::optional<T> tryFrom(Value const& value) {
    if constexpr (HasTextForm<T>) {
      if (auto const* text = std::get_if<String8>(&value.value_)) return TextForm<T>::parse(text->view());
    } else if constexpr (std::same_as<T, Name>) {
      if (auto const* text = std::get_if<String8>(&value.value_)) return Name(*text);
    } else {
      if (auto const* held = std::get_if<T>(&value.value_)) return *held;
      if constexpr (std::same_as<T, Seconds>)
        if (auto const* number = std::get_if<unsigned>(&value.value_)) return *number;
    }
    return std::nullopt;
  }
  static T from(Value const& value) {
    if (auto found = tryFrom(value)) return *std::move(found);
    throwTypeException(TypeName<T>::value, value.type());
  }
};
template <class T>
struct GenericIf::Value::As<Ptr<T>> {
  static Ptr<T> from(Value const& value) {
    if (value.isNull()) return nullptr;
    if (auto const* text = std::get_if<String8>(&value.value_)) return sequenceToValueOfPtr<T>(text->view());
    Ptr<T const> found = ptrCast<T const>(value.object());
    if (!found) throwTypeException(TypeName<Ptr<T>>::value, value.type());
    if constexpr (std::is_const_v<T>) {
      return found;
    } else {
      auto const* object = std::get_if<Ptr<PtrInterface>>(&value.value_);
      if (object == nullptr) throwConstException();
      return ptrCast<T>(*object);
    }
  }
};
template <class T>
struct GenericIf::Value::As<ValidPtr<T>> {
  static ValidPtr<T> from(Value const& value) { return As<Ptr<T>>::from(value); }
};
template <>
struct GenericIf::Value::As<std::vector<Name>> {
  static std::vector<Name> from(Value const& value) { return List_::names(value); }
};

template <class T>
T GenericIf::Value::as() const {
  return As<T>::from(*this);
}
template <class T>
bool GenericIf::Value::is() const {
  return As<T>::tryFrom(*this).has_value();
}

}  // namespace Nox
