// Descriptions of the framework's classes, and the directory in which they are found by name.
#pragma once

#include <string_view>

#include "framework/core/attribute.h"

namespace Nox {

struct AttrRow;

/// The rows of a class's attribute table, by ascending ids without a gap. Made by `AttrTable`. The core asks for
/// names and ids alone.
struct AttrRows {
  AttrRow const* rows = nullptr;
  unsigned count = 0;
  /// The id of the attribute of that name; 0, which no attribute has, for one that the table does not have.
  AttributeId (*idOf)(AttrRows const& table, std::string_view name) noexcept = nullptr;
  /// The name of the attribute of that id; empty for one that the table does not have.
  std::string_view (*nameOf)(AttrRows const& table, AttributeId id) noexcept = nullptr;
};

/// What a class is: its full name, "Controller::ServiceStatusDir", the class that it derives from, or null, what makes
/// an entity of it from a name, null where a name is not enough, and its attributes, none where none is reached by
/// name.
struct ClassFacts {
  std::string_view name;
  NoxType const* base;
  Ptr<Entity> (*newEntity)(Name const& name) = nullptr;
  AttrRows rows = {};
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
      : name(className), base(baseType), newEntity(maker), rows_(attributeRows) {}
  constexpr explicit NoxType(ClassFacts const& facts) noexcept
      : NoxType(facts.name, facts.base, facts.newEntity, facts.rows) {}

  std::string_view const name;  ///< The class's full name, "Controller::ServiceStatusDir".
  NoxType const* const base;    ///< The class it derives from, or null.
  NewEntity const newEntity;    ///< Null where a name is not enough to make one.

  /// Whether this class is `other` or derives from it.
  bool isA(NoxType const& other) const noexcept {
    for (NoxType const* t = this; t != nullptr; t = t->base)
      if (t == &other) return true;
    return false;
  }

  /// The class's own attributes; empty where none is reached by name.
  AttrRows const& rows() const noexcept { return rows_; }
  /// Gives the rows to a class that cannot state them itself, before it is reached by name.
  void rowsIs(AttrRows const& rows) noexcept { rows_ = rows; }
  /// The name of an attribute of the class or of those it derives from; empty if there is none of that id.
  std::string_view attributeName(AttributeId id) const noexcept;
  /// The id of an attribute of the class or of those it derives from; 0 if there is none of that name.
  AttributeId attributeId(std::string_view attribute) const noexcept;

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

  AttrRows rows_;
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

/// Enters a type into the directory for as long as the registration lives: one per class that is made by type name. A
/// class that is reached by name has a `DescribedType` instead.
class NOX_EXPORT TypeRegistration {
 public:
  explicit TypeRegistration(NoxType const& type) noexcept;
  ~TypeRegistration();
  TypeRegistration(TypeRegistration const&) = delete;
  TypeRegistration& operator=(TypeRegistration const&) = delete;

 private:
  friend NOX_EXPORT NoxType const* typeNamed(std::string_view name) noexcept;
  NoxType const& type_;
  TypeRegistration* next_;
};

/// The registered type of that name, or null.
NOX_EXPORT NoxType const* typeNamed(std::string_view name) noexcept;

}  // namespace Nox
