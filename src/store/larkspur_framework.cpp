// SPDX-License-Identifier: Apache-2.0
// What a framework object knows: its root, its notification center, and whether start-up succeeded.
#include <utility>

#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "platform/platform.h"

namespace larkspur {

const std::vector<std::string>& LarkspurFramework::supportedContentTypes() {
  static const auto& types = *new std::vector<std::string>{"application/zip"};
  return types;
}

LarkspurFramework::~LarkspurFramework() = default;

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
