// Descriptions of classes. A library registers one for each class that is reached by name when it is loaded; the
// introspection reactor keeps it until the library is unloaded.
#pragma once

#include "framework/core/type.h"

namespace Nox {

/// Hears the descriptions of classes as they are registered. The global one keeps the types for as long as they are
/// registered; another one may listen to `registerType`.
class NOX_EXPORT IntrospectionReactor {
 public:
  static IntrospectionReactor& global() noexcept;

  IntrospectionReactor() = default;
  IntrospectionReactor(IntrospectionReactor const&) = delete;
  IntrospectionReactor& operator=(IntrospectionReactor const&) = delete;
  virtual ~IntrospectionReactor();

  virtual void handleNameSpace(char const* nameSpace);
  /// Opens the scope of a type; a type that is described again is not kept twice.
  virtual void handleType(NoxType& type, NoxType const* base);
  /// Defines an attribute without arguments; an earlier one of that name goes.
  virtual void defNoninstantiatingAttr(NoxType& type, Name const& name, Name const& attrType, unsigned flags,
                                       NoxAttr::NoxAttrIntrospectionFlags introspectionFlags, AttributeId id);
  /// Hears of an attribute that has been defined with its arguments.
  virtual void handleAttr(NoxAttr const& attr);
  virtual void handleAttrContextExit();
  virtual void handleScopeExit();

  /// The types that are kept, in the order of their registration.
  LinkQueue<NoxType> const& types() const noexcept { return types_; }
  /// Forgets a type and its description.
  void typeDel(NoxType& type);

 private:
  LinkQueue<NoxType> types_;
};

/// Describes a class and its attributes: the namespace, the type, each listed attribute in the order of declaration,
/// the end of the type's scope.
NOX_EXPORT void registerType(NoxType& type, IntrospectionReactor& reactor);

/// Registers a class that is reached by name: enters it into the directory of types and describes it to the global
/// reactor, both for as long as this lives.
class NOX_EXPORT DescribedType {
 public:
  explicit DescribedType(NoxType& type);
  ~DescribedType();
  DescribedType(DescribedType const&) = delete;
  DescribedType& operator=(DescribedType const&) = delete;

 private:
  TypeRegistration registration_;
  NoxType& type_;
};

/// The same for the classes of a list.
template <class... Class>
struct DescribedTypes {
  DescribedType const types[sizeof...(Class)]{DescribedType(Class::noxType)...};
};

}  // namespace Nox
