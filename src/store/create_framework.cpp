// SPDX-License-Identifier: Apache-2.0
// Start-up: finds the notification center and the managed root, and creates a missing root.
#include <cerrno>
#include <cstdlib>
#include <utility>

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

const std::vector<std::string>& LarkspurFramework::supportedContentTypes() {
  static const auto& types = *new std::vector<std::string>{"application/zip"};
  return types;
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

LarkspurFramework::~LarkspurFramework() = default;

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

const std::optional<FileURL>& LarkspurFramework::larkspurPathURL() const {
  return larkspurPathURL_;
}
void LarkspurFramework::setLarkspurPathURL(std::optional<FileURL> url) {
  larkspurPathURL_ = std::move(url);
}
std::optional<FileURL>& LarkspurFramework::modifyLarkspurPathURL() { return larkspurPathURL_; }

bool LarkspurFramework::isDarwinNotifCenterSuccess() const { return isDarwinNotifCenterSuccess_; }
void LarkspurFramework::setIsDarwinNotifCenterSuccess(bool success) {
  isDarwinNotifCenterSuccess_ = success;
}
bool& LarkspurFramework::modifyIsDarwinNotifCenterSuccess() { return isDarwinNotifCenterSuccess_; }

bool LarkspurFramework::isDefaultPathExists() const { return isDefaultPathExists_; }
void LarkspurFramework::setIsDefaultPathExists(bool exists) { isDefaultPathExists_ = exists; }
bool& LarkspurFramework::modifyIsDefaultPathExists() { return isDefaultPathExists_; }

const FileURL& LarkspurFramework::root() const {
  const std::optional<FileURL>& url = larkspurPathURL();
  if (!url) stopProcess("the managed root has no URL");
  return *url;
}

void LarkspurFramework::requireReadiness() const {
  if (isDefaultPathExists() && isDarwinNotifCenterSuccess()) return;
  logger_->error("Failed initializing Larkspur");
  throw LarkspurError::internalError();
}

void LarkspurFramework::announceChange(const std::string& name) const {
  // Null only if the client marked an object as ready that start-up had not.
  if (darwin_) darwin_->post(name);
}

}  // namespace larkspur
