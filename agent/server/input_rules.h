// What the service refuses of a client beyond what the state tree refuses.
#pragma once

#include "agent/document/scenario.h"

namespace Agent {

/// Throws an InputError for a put with a name that has a character which is printed as an escape, with the name "." or
/// "..", or of a switch's configuration without a system id. What is stored already may be such, and may be deleted.
void requireInput(Operation const& operation);

}  // namespace Agent
