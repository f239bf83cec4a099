// SPDX-License-Identifier: Apache-2.0
// The one place through which the library reaches the operating system.
#pragma once

#include <memory>

#include <larkspur/platform.h>

#include "platform/extended_attributes.h"
#include "platform/file_manager.h"
#include "platform/system_variant.h"
#include "platform/task.h"

namespace larkspur {

/// One of each thing that a host or a test may put its own in place of.
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

/// The platform in use; one per process, made on first use and never destroyed, so that code that
/// runs while the process exits still finds it. Looked up at every use and never kept.
Platform& currentPlatform();

/// The real one. Each backend defines it, and nothing else of a backend is named outside it.
Platform makeSystemPlatform();

/// Says `why` on the log, in the category "Platform", and aborts the process; nothing catches it.
[[noreturn]] void stopProcess(const char* why) noexcept;

}  // namespace larkspur
