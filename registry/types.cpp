// The types of the registry's classes.
#include "registry/EnrolixSm.h"

namespace Controllerdb {

constinit Nox::NoxType const Root::noxType{"Controllerdb::Root", &Nox::Entity::noxType, nullptr};
constinit Nox::NoxType const RegistryRootSm::noxType{"Controllerdb::RegistryRootSm", nullptr, nullptr};
constinit Nox::NoxType const SwitchRegistrySm::noxType{"Controllerdb::SwitchRegistrySm", nullptr, nullptr};
constinit Nox::NoxType const SwitchConfigSm::noxType{"Controllerdb::SwitchConfigSm", nullptr, nullptr};
constinit Nox::NoxType const SystemPublishSm::noxType{"Controllerdb::SystemPublishSm", nullptr, nullptr};

}  // namespace Controllerdb
