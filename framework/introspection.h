// What a library tells of its classes when it is loaded, and where that is kept.
#pragma once

#include "framework/linked_queue.h"
#include "framework/name.h"

namespace Nox {

/// The name of one argument, or of its type, in an attribute's queue.
class NOX_EXPORT ConstructorArg final : public PtrInterface, public LinkQueueLink<> {
 public:
  explicit ConstructorArg(Name text) : text_(std::move(text)) {}
  Name const& text() const noexcept { return text_; }

 private:
  Name text_;
};

/// The description of one attribute of a class.
class NOX_EXPORT NoxAttr final : public PtrInterface, public LinkQueueLink<> {
 public:
  using ArgQueue = LinkedQueue<ConstructorArg, NoxAttr, Ptr<ConstructorArg>>;

  /// What kind of attribute it is, as bits.
  enum Flags : unsigned {
    kKeyed = 1,    ///< A collection: its operations take a key first.
    kHandler = 2,  ///< It is called.
  };

  /// What can be done with the attribute by name: one bit for each operation of the generic interface. A value of more
  /// than 6 bits throws RangeException.
  class NOX_EXPORT NoxAttrIntrospectionFlags {
   public:
    explicit NoxAttrIntrospectionFlags(unsigned value);
    unsigned value() const noexcept { return value_; }

   private:
    unsigned value_;
  };

  NoxAttr(Name name, Name type, unsigned flags, NoxAttrIntrospectionFlags introspectionFlags, AttributeId id)
      : name_(std::move(name)),
        type_(std::move(type)),
        introspectionFlags_(introspectionFlags),
        flags_(flags),
        id_(id) {}

  Name const& name() const noexcept { return name_; }
  /// The name of the attribute's type; of what it returns for one that is called.
  Name const& type() const noexcept { return type_; }
  AttributeId id() const noexcept { return id_; }
  unsigned flags() const noexcept { return flags_; }
  NoxAttrIntrospectionFlags introspectionFlags() const noexcept { return introspectionFlags_; }
  /// The names and the types of the arguments, each in order.
  ArgQueue const& constructorArgNameQ() const noexcept { return argNames_; }
  ArgQueue const& constructorArgTypeQ() const noexcept { return argTypes_; }
  void constructorArgNameQEnq(Name const& argument) { argNames_.enq(make<ConstructorArg>(argument)); }
  void constructorArgTypeQEnq(Name const& argumentType) { argTypes_.enq(make<ConstructorArg>(argumentType)); }

  /// Removes the attribute of that name from a type's description, if it is there.
  static void attrDel(NoxType& type, Name const& name);
  /// Appends an attribute to a type's description and returns it.
  static NoxAttr& attrIs(NoxType& type, Name const& name, Name const& attrType, unsigned flags,
                         NoxAttrIntrospectionFlags introspectionFlags, AttributeId id);

 private:
  Name name_;
  Name type_;
  NoxAttrIntrospectionFlags introspectionFlags_;
  unsigned flags_;
  AttributeId id_;
  ArgQueue argNames_;
  ArgQueue argTypes_;
};

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

}  // namespace Nox
