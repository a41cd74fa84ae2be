// The directory of types: a list that the registrations themselves form.
#include "framework/type.h"

namespace Nox {

static constinit TypeRegistration* registrations = nullptr;

TypeRegistration::TypeRegistration(NoxType const& type) : type_(type), next_(registrations) { registrations = this; }

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
