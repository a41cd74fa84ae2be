// Descriptions of the framework's classes, and the directory in which they are found by name.
#pragma once

#include <string_view>

#include "framework/attr_key.h"
#include "framework/introspection.h"

namespace Nox {

struct AttrRow;

/// The rows of a class's attribute table, as its type finds them: by name through a hash without collisions, by id by
/// counting from the first. Made by `AttrTable`.
struct AttrRows {
  AttrRow const* rows = nullptr;
  std::uint8_t const* slots = nullptr;  ///< The place of a row by the hash of its name; of any row where none has it.
  std::uint64_t seed = 0;
  unsigned count = 0;

  static constexpr std::size_t kSlots = 256;
  static constexpr std::size_t slotOf(AttrKey const& name, std::uint64_t seed) noexcept {
    return name.hash(seed) >> 56;
  }
};

/// What is known of a class at run time. One object per class; its address is the class's identity across libraries.
/// What the class is stands from the start; how its attributes are described is filled in when the class is registered.
class NOX_EXPORT NoxType : public LinkQueueLink<> {
 public:
  /// Makes an entity of the class from its name.
  using NewEntity = Ptr<Entity> (*)(Name const& name);
  using AttrQueue = LinkedQueue<NoxAttr, NoxType, Ptr<NoxAttr>>;

  constexpr NoxType(std::string_view className, NoxType const* baseType, NewEntity maker = nullptr,
                    AttrRows attributeRows = {}) noexcept
      : name(className), base(baseType), newEntity(maker), rows(attributeRows) {}

  std::string_view const name;  ///< The class's full name, "Controller::ServiceStatusDir".
  NoxType const* const base;    ///< The class it derives from, or null.
  NewEntity const newEntity;    ///< Null where a name is not enough to make one.
  AttrRows const rows;          ///< The class's own attributes; empty where none is reached by name.

  /// Whether this class is `other` or derives from it.
  bool isA(NoxType const& other) const noexcept {
    for (NoxType const* t = this; t != nullptr; t = t->base)
      if (t == &other) return true;
    return false;
  }

  /// The row of an attribute of the class or of those it derives from; null if there is none.
  AttrRow const* row(AttrKey const& attribute) const noexcept;
  AttrRow const* row(AttributeId id) const noexcept;
  /// The same of the class's own attributes alone.
  AttrRow const* ownRow(AttrKey const& attribute) const noexcept;

  // The description, as it was registered.

  bool isEntity() const noexcept { return isEntity_; }
  void isEntityIs(bool isEntity) noexcept { isEntity_ = isEntity; }
  bool hasGenericIfSupport() const noexcept { return hasGenericIfSupport_; }
  void hasGenericIfSupportIs(bool has) noexcept { hasGenericIfSupport_ = has; }
  /// The registered attributes, in the order of their declaration.
  AttrQueue const& attrs() const noexcept { return attrs_; }
  Ptr<NoxAttr const> attr(std::string_view attribute) const;
  /// Append to the arguments of the attribute that was defined last.
  void constructorArgNameQEnq(Name const& argument);
  void constructorArgTypeQEnq(Name const& type);

 private:
  friend class NoxAttr;
  void append(Ptr<NoxAttr> const& attr);
  void remove(NoxAttr& attr);

  AttrQueue attrs_;
  NoxAttr* last_ = nullptr;
  bool isEntity_ = false;
  bool hasGenericIfSupport_ = false;
};

/// Gives a class its `_fwkType()` and `fwkType()`; the class declares `static NoxType noxType`.
template <class Self, class Base>
class NOX_EXPORT Typed : public Base {
 public:
  using Base::Base;
  static NoxType const& _fwkType() { return Self::noxType; }
  NoxType const& fwkType() const override { return Self::noxType; }
};

/// Enters a type into the directory for as long as the registration lives, and describes it to the introspection
/// reactor if it has attributes: one per class that is made by type name or reached by name.
class NOX_EXPORT TypeRegistration {
 public:
  explicit TypeRegistration(NoxType& type);
  ~TypeRegistration();
  TypeRegistration(TypeRegistration const&) = delete;
  TypeRegistration& operator=(TypeRegistration const&) = delete;

 private:
  friend NOX_EXPORT NoxType const* typeNamed(std::string_view name) noexcept;
  NoxType& type_;
  TypeRegistration* next_;
};

/// The registered type of that name, or null.
NOX_EXPORT NoxType const* typeNamed(std::string_view name) noexcept;

}  // namespace Nox
