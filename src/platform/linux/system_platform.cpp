// SPDX-License-Identifier: Apache-2.0
// Assembles the Linux platform.
#include "platform/linux/system_platform.h"

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
