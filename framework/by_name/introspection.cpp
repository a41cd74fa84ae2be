// Descriptions of classes: how one is registered, and the reactor that keeps them.
#include "framework/by_name/introspection.h"

#include "framework/by_name/attr_table.h"
#include "framework/core/entity.h"

namespace Nox {

IntrospectionReactor& IntrospectionReactor::global() noexcept {
  static IntrospectionReactor reactor;
  return reactor;
}

IntrospectionReactor::~IntrospectionReactor() = default;

void IntrospectionReactor::handleNameSpace(char const* /*nameSpace*/) {}

void IntrospectionReactor::handleType(NoxType& type, NoxType const* /*base*/) {
  for (NoxType const& kept : types_)
    if (&kept == &type) return;
  types_.enq(type);
}

void IntrospectionReactor::defNoninstantiatingAttr(NoxType& type, Name const& name, Name const& attrType,
                                                   unsigned flags,
                                                   NoxAttr::NoxAttrIntrospectionFlags introspectionFlags,
                                                   AttributeId id) {
  NoxAttr::attrDel(type, name);
  NoxAttr::attrIs(type, name, attrType, flags, introspectionFlags, id);
}

void IntrospectionReactor::handleAttr(NoxAttr const& /*attr*/) {}
void IntrospectionReactor::handleAttrContextExit() {}
void IntrospectionReactor::handleScopeExit() {}

void IntrospectionReactor::typeDel(NoxType& type) {
  for (NoxType& kept : types_)
    if (&kept == &type) types_.remove(type);
  while (!type.attrs().empty()) NoxAttr::attrDel(type, type.attrs().begin()->name());
}

void registerType(NoxType& type, IntrospectionReactor& reactor) {
  std::string const nameSpace(type.name.substr(0, type.name.rfind("::")));
  reactor.handleNameSpace(nameSpace.c_str());
  reactor.handleType(type, type.base);
  type.isEntityIs(type.isA(Entity::noxType));
  type.hasGenericIfSupportIs(true);
  for (AttrRow const& row : std::span(type.rows().rows, type.rows().count)) {
    if (!row.isListed) continue;
    Name const name(row.name);
    Name const attrType(row.type);
    NoxAttr::NoxAttrIntrospectionFlags const introspectionFlags(row.ops);
    if (!row.isInstantiating()) {
      reactor.defNoninstantiatingAttr(type, name, attrType, row.flags, introspectionFlags, row.id);
      continue;
    }
    NoxAttr::attrDel(type, name);
    NoxAttr const& attr = NoxAttr::attrIs(type, name, attrType, row.flags, introspectionFlags, row.id);
    for (ArgRow const& arg : std::span(row.args).first(row.argCount)) {
      type.constructorArgNameQEnq(Name(arg.name));
      type.constructorArgTypeQEnq(Name(arg.type));
    }
    reactor.handleAttr(attr);
    reactor.handleAttrContextExit();
  }
  reactor.handleScopeExit();
}

DescribedType::DescribedType(NoxType& type) : registration_(type), type_(type) {
  registerType(type, IntrospectionReactor::global());
}
DescribedType::~DescribedType() { IntrospectionReactor::global().typeDel(type_); }

}  // namespace Nox
