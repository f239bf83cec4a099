// SPDX-License-Identifier: Apache-2.0
// Puts the parts of this folder together.
#include "platform/linux/bus_notification_center.h"
#include "platform/linux/child_process.h"
#include "platform/linux/journal.h"
#include "platform/linux/linux_file_manager.h"
#include "platform/linux/small_services.h"
#include "platform/platform.h"

namespace larkspur {

Platform makeSystemPlatform() {
  return {.fileManager = linuxos::makeFileManager(),
          .taskLauncher = linuxos::makeTaskLauncher(),
          .extendedAttributes = linuxos::makeExtendedAttributes(),
          .systemVariant = linuxos::makeSystemVariant(),
          .log = journalLog(LogLevel::error),
          .notificationCenter = linuxos::makeNotificationCenter(),
          .analyticsService = linuxos::makeAnalyticsService(),
          .userDefaults = linuxos::makeUserDefaults()};
}

}  // namespace larkspur
