// SPDX-License-Identifier: Apache-2.0
// Holds the platform in use and lets the host replace its services.
#include "platform/platform.h"

#include <cstdlib>
#include <utility>

#include "foundation/logger.h"

namespace larkspur {
namespace {

// Never destroyed: code may still use it while the process exits.
const Platform& systemPlatform() {
  static const Platform& platform = *new Platform(makeSystemPlatform());
  return platform;
}

template <typename Service>
void use(auto member, std::shared_ptr<Service> service) {
  if (!service) service = systemPlatform().*member;
  currentPlatform().*member = std::move(service);
}

}  // namespace

// Out of line, so that each class has one vtable.
Log::~Log() = default;
NotificationCenter::~NotificationCenter() = default;
AnalyticsService::~AnalyticsService() = default;
UserDefaults::~UserDefaults() = default;

bool NotificationCenter::open() noexcept { return true; }

Platform& currentPlatform() {
  static Platform& platform = *new Platform(systemPlatform());
  return platform;
}

Log& currentLog() noexcept { return *currentPlatform().log; }

std::shared_ptr<Log> logInPlace() { return currentPlatform().log; }

void useLog(std::shared_ptr<Log> log) { use(&Platform::log, std::move(log)); }

void useNotificationCenter(std::shared_ptr<NotificationCenter> center) {
  use(&Platform::notificationCenter, std::move(center));
}

void useAnalyticsService(std::shared_ptr<AnalyticsService> service) {
  use(&Platform::analyticsService, std::move(service));
}

void useUserDefaults(std::shared_ptr<UserDefaults> defaults) {
  use(&Platform::userDefaults, std::move(defaults));
}

void stopProcess(const char* why) noexcept {
  Logger("Platform").error("Stopping the process: %s", std::string_view(why));
  std::abort();
}

}  // namespace larkspur
