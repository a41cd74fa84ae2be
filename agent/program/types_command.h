// `enrolix types`: what the registry's library tells of its classes.
#pragma once

#include <string>

#include "agent/program/options.h"

namespace Agent {

/// The registered types with their attributes, as a table, or as JSON if the options say so: of all types, or of the
/// one that is named. Throws an InputError for a type that is not registered, and what loading the library throws.
std::string describeTypes(TypesOptions const& options);

}  // namespace Agent
