// Types: their descriptions, and the directory of types, which is a list of the registrations.
#include "framework/core/type.h"

#include "framework/memory/assertion.h"

namespace Nox {

std::string_view NoxType::attributeName(AttributeId id) const noexcept {
  for (NoxType const* t = this; t != nullptr; t = t->base)
    if (t->rows_.nameOf != nullptr)
      if (std::string_view const found = t->rows_.nameOf(t->rows_, id); !found.empty()) return found;
  return {};
}

AttributeId NoxType::attributeId(std::string_view attribute) const noexcept {
  for (NoxType const* t = this; t != nullptr; t = t->base)
    if (t->rows_.idOf != nullptr)
      if (AttributeId const found = t->rows_.idOf(t->rows_, attribute); found != 0) return found;
  return 0;
}

Ptr<NoxAttr const> NoxType::attr(std::string_view attribute) const {
  for (NoxAttr& attr : attrs_)
    if (attr.name() == attribute) return Ptr<NoxAttr const>(&attr);
  return nullptr;
}

void NoxType::append(Ptr<NoxAttr> const& attr) {
  attrs_.enq(attr);
  last_ = attr.get();
}

void NoxType::remove(NoxAttr& attr) {
  if (last_ == &attr) last_ = nullptr;
  attrs_.remove(attr);
}

void NoxType::constructorArgNameQEnq(Name const& argument) {
  NOX_ASSERT(last_ != nullptr, "an argument belongs to an attribute");
  last_->constructorArgNameQEnq(argument);
}

void NoxType::constructorArgTypeQEnq(Name const& type) {
  NOX_ASSERT(last_ != nullptr, "an argument belongs to an attribute");
  last_->constructorArgTypeQEnq(type);
}

static constinit TypeRegistration* registrations = nullptr;

TypeRegistration::TypeRegistration(NoxType const& type) noexcept : type_(type), next_(registrations) {
  registrations = this;
}

TypeRegistration::~TypeRegistration() {
  TypeRegistration** at = &registrations;
  while (*at != this) at = &(*at)->next_;
  *at = next_;
}

NoxType const* typeNamed(std::string_view name) noexcept {
  for (TypeRegistration const* r = registrations; r != nullptr; r = r->next_)
    if (r->type_.name == name) return &r->type_;
  return nullptr;
}

}  // namespace Nox
