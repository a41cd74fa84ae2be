// The parts of a negotiation that stand on their own: ordering versions, and writing an outcome.
#pragma once

#include <vector>

#include "framework/core/ptr.h"
#include "records/service.h"

namespace Controllerdb {

/// Appends the offered versions to `out` and sorts the whole of it, highest first. The caller passes an empty list.
/// `label` names the side; it is accepted and not used. Throws RangeException for a null `config`, "null ValidPtr".
NOX_EXPORT void sortVersions(Nox::Ptr<Controller::ServiceVersionConfigV1 const> const& config,
                             std::vector<Controller::ServiceVersionV1>& out, Nox::String8 const& label);

/// Whether `a` comes before `b`: the higher number first, compared as unsigned.
NOX_EXPORT bool sortFunction(Controller::ServiceVersionV1 const& a, Controller::ServiceVersionV1 const& b);

/// Writes the version, then whether it is compatible, then whether the negotiation is complete. A null status is fatal.
NOX_EXPORT void updateVersionStatus(Nox::Ptr<Controller::ServiceVersionStatusV1> versionStatus, bool complete,
                                    bool compatible, Controller::ServiceVersionV1 version);

}  // namespace Controllerdb
