// SPDX-License-Identifier: Apache-2.0
// The library's only access to the operating system.
#pragma once

#include <memory>

#include <larkspur/platform.h>

#include "platform/extended_attributes.h"
#include "platform/file_manager.h"
#include "platform/system_variant.h"
#include "platform/task.h"

namespace larkspur {

/// The services of the system, each replaceable by a test, some by the host.
struct Platform {
  std::shared_ptr<FileManager> fileManager;
  std::shared_ptr<TaskLauncher> taskLauncher;
  std::shared_ptr<ExtendedAttributes> extendedAttributes;
  std::shared_ptr<SystemVariant> systemVariant;
  std::shared_ptr<Log> log;
  std::shared_ptr<NotificationCenter> notificationCenter;
  std::shared_ptr<AnalyticsService> analyticsService;
  std::shared_ptr<UserDefaults> userDefaults;
};

/// The platform in use, created on first use and never destroyed: code may still use it while the
/// process exits. Never keep the reference.
Platform& currentPlatform();

/// Creates the real platform; each backend defines it.
Platform makeSystemPlatform();

/// Logs `why` in the category "Platform" and aborts the process.
[[noreturn]] void stopProcess(const char* why) noexcept;

}  // namespace larkspur
