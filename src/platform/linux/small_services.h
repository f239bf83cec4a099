// SPDX-License-Identifier: Apache-2.0
// The services that need a few lines each: attributes, user defaults and the kind of system.
#pragma once

#include <memory>

#include <larkspur/platform.h>

#include "platform/extended_attributes.h"
#include "platform/system_variant.h"

namespace larkspur::linuxos {

std::shared_ptr<ExtendedAttributes> makeExtendedAttributes();
std::shared_ptr<SystemVariant> makeSystemVariant();

/// Reads `larkspur/defaults.json` in the user's configuration directory (`XDG_CONFIG_HOME`, else
/// `.config` in the home directory) at every call. A file that is missing, or that holds no JSON
/// object, has no defaults.
std::shared_ptr<UserDefaults> makeUserDefaults();

}  // namespace larkspur::linuxos
