// SPDX-License-Identifier: Apache-2.0
// Reports an internal build if the build option is on.
#include "platform/linux/system_platform.h"

#ifndef LARKSPUR_INTERNAL_UI
#define LARKSPUR_INTERNAL_UI 0
#endif

namespace larkspur::linuxos {
namespace {

class LinuxVariant : public SystemVariant {
 public:
  std::optional<std::string> bundleIdentifier() override { return std::nullopt; }
  bool hasInternalUI(const std::optional<std::string>&) override {
    return LARKSPUR_INTERNAL_UI != 0;
  }
};

}  // namespace

std::shared_ptr<SystemVariant> makeSystemVariant() { return std::make_shared<LinuxVariant>(); }

}  // namespace larkspur::linuxos
