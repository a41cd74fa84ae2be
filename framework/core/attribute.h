// The description of an attribute: its name, its type, its number, and the arguments of its operations.
#pragma once

#include "framework/core/linked_queue.h"
#include "framework/text/name.h"

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

}  // namespace Nox
