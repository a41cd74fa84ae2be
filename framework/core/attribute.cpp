// How an attribute is entered into the description of its type, and removed from it.
#include "framework/core/attribute.h"

#include "framework/core/type.h"

namespace Nox {

NoxAttr::NoxAttrIntrospectionFlags::NoxAttrIntrospectionFlags(unsigned value) : value_(value) {
  if (value > 0x3f) throwRangeException("NoxAttrIntrospectionFlags::value > 0x3f not allowed");
}

void NoxAttr::attrDel(NoxType& type, Name const& name) {
  auto const attr = type.attr(name.view());
  if (!attr) return;
  type.remove(const_cast<NoxAttr&>(*attr));
}

NoxAttr& NoxAttr::attrIs(NoxType& type, Name const& name, Name const& attrType, unsigned flags,
                         NoxAttrIntrospectionFlags introspectionFlags, AttributeId id) {
  auto const attr = make<NoxAttr>(name, attrType, flags, introspectionFlags, id);
  type.append(attr);
  return *attr;
}

}  // namespace Nox
