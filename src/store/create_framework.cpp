// SPDX-License-Identifier: Apache-2.0
// Start-up: finds the notification center and the managed root, and creates a missing root.
#include <cerrno>
#include <cstdlib>

#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {
namespace {

constexpr unsigned kRootMode = 0755;

// Start-up never throws, so an invalid path stops the process.
FileURL locationOfRoot(const std::string& path) {
  try {
    return Utilities::shared().urlForLocation(path);
  } catch (const LarkspurError&) {
    stopProcess("the path of the managed root is not valid");
  }
}

}  // namespace

std::string& LarkspurFramework::larkspurPath() {
  static std::string& path = *new std::string("/private/var/db/Larkspur");
  return path;
}

LarkspurFramework::LarkspurFramework() : logger_(std::make_unique<const Logger>("Framework")) {
  const std::shared_ptr<NotificationCenter> center = currentPlatform().notificationCenter;
  if (center->open()) {
    darwin_ = center;
  } else {
    const int code = errno;
    logger_->error("Failed getting darwin notification center. errno: %d", code);
    isDarwinNotifCenterSuccess_ = false;
  }

  larkspurPathURL_ = locationOfRoot(larkspurPath());
  const Existence existence = currentPlatform().fileManager->existence(*larkspurPathURL_);
  if (existence == Existence::nothing) {
    const int code = errno;
    logger_->error("Larkspur directory %s does not exist. errno: %d", larkspurPathURL_->path(),
                   code);
    isDefaultPathExists_ = false;
  } else if (existence == Existence::file) {
    logger_->error("Larkspur path is not a directory, %s", larkspurPathURL_->path());
    isDefaultPathExists_ = false;
  }
}

std::unique_ptr<LarkspurFramework> LarkspurFramework::createFramework(const std::string& path) {
  larkspurPath() = path;
  auto framework = std::make_unique<LarkspurFramework>();
  if (framework->isDefaultPathExists()) return framework;

  const Logger& logger = *framework->logger_;
  logger.info("Larkspur directory %s does not exist, creating...", path);
  try {
    currentPlatform().fileManager->createDirectory(framework->root(), IntermediateDirectories::yes,
                                                   kRootMode);
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger.error("FileManager createDirectory %s failed with error: %d", path, code);
    // The library cannot work without its root.
    std::exit(-1);
  }
  framework->setIsDefaultPathExists(true);
  return framework;
}

}  // namespace larkspur
