// Descriptions of the framework's classes, and the directory in which they are found by name.
#pragma once

#include <string_view>

#include "framework/fwd.h"

namespace Nox {

/// What is known of a class at run time. One constant per class; its address is its identity across libraries.
struct NoxType {
  std::string_view name;  ///< The class's full name, "Controller::ServiceStatusDir".
  NoxType const* base;    ///< The class it derives from, or null.
  Ptr<Entity> (*newEntity)(
      Name const& name);  ///< Makes an entity of this class, or null where a name is not enough to make one.

  /// Whether this class is `other` or derives from it.
  bool isA(NoxType const& other) const noexcept {
    for (NoxType const* t = this; t != nullptr; t = t->base)
      if (t == &other) return true;
    return false;
  }
};

/// Gives a class its `_fwkType()` and `fwkType()`; the class declares `static NoxType const noxType`.
template <class Self, class Base>
class NOX_EXPORT Typed : public Base {
 public:
  using Base::Base;
  static NoxType const& _fwkType() { return Self::noxType; }
  NoxType const& fwkType() const override { return Self::noxType; }
};

/// Enters a type into the directory for as long as the registration lives: one per class that is made by type name.
class NOX_EXPORT TypeRegistration {
 public:
  explicit TypeRegistration(NoxType const& type);
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
