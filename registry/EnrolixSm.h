// The registry's chief header: the root, and the state machines that it builds.
#pragma once

#include "registry/registry_root_sm.h"
#include "registry/root.h"
#include "registry/switch_config_sm.h"
#include "registry/switch_registry_sm.h"
#include "registry/system_publish_sm.h"
#include "registry/version_negotiation.h"
