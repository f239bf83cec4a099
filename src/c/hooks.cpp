// SPDX-License-Identifier: Apache-2.0
// Wraps the caller's functions as platform services, and collects the error lines of each call.
#include "c/hooks.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include <larkspur/larkspur.h>

#include "c/report.h"

namespace larkspur::c {
namespace {

class CollectingLog : public Log {
 public:
  explicit CollectingLog(std::shared_ptr<Log> target) : target_(std::move(target)) {}
  bool isEnabled(LogLevel level) const noexcept override {
    return (level == LogLevel::error && DetailCollector::isCollecting()) ||
           target_->isEnabled(level);
  }
  void write(const LogEntry& entry) noexcept override {
    if (entry.level == LogLevel::error) DetailCollector::add(entry.message);
    if (target_->isEnabled(entry.level)) target_->write(entry);
  }

 private:
  std::shared_ptr<Log> target_;
};

class HookLog : public Log {
 public:
  explicit HookLog(const larkspur_hooks& hooks) : hooks_(hooks) {}
  bool isEnabled(LogLevel level) const noexcept override {
    return static_cast<int>(level) <= hooks_.log_level;
  }
  void write(const LogEntry& entry) noexcept override {
    try {
      const std::string category(entry.category), message(entry.message);
      hooks_.log(hooks_.context, static_cast<int>(entry.level), category.c_str(), message.c_str());
    } catch (const std::bad_alloc&) {
      // Out of memory: only the line is lost.
    }
  }

 private:
  larkspur_hooks hooks_;
};

class HookNotificationCenter : public NotificationCenter {
 public:
  explicit HookNotificationCenter(const larkspur_hooks& hooks) : hooks_(hooks) {}
  void post(const std::string& name) noexcept override {
    hooks_.change(hooks_.context, name.c_str());
  }

 private:
  larkspur_hooks hooks_;
};

template <typename Value>
Value valueIn(const AnalyticsPayload& payload, std::string_view key) {
  const auto found = payload.find(key);
  const Value* value = found == payload.end() ? nullptr : std::get_if<Value>(&found->second);
  return value != nullptr ? *value : Value();
}

class HookAnalyticsService : public AnalyticsService {
 public:
  explicit HookAnalyticsService(const larkspur_hooks& hooks) : hooks_(hooks) {}
  void sendEvent(const std::string&, AnalyticsPayload payload) noexcept override {
    try {
      const auto type = valueIn<std::string>(payload, "serviceType");
      hooks_.event(hooks_.context, type.c_str(), valueIn<bool>(payload, "enabled") ? 1 : 0,
                   valueIn<std::int64_t>(payload, "size"),
                   valueIn<std::int64_t>(payload, "numberOfManagedServices"));
    } catch (const std::bad_alloc&) {
      // Out of memory: only the event is lost.
    }
  }

 private:
  larkspur_hooks hooks_;
};

// Creates all of them first: out of memory, it replaces none.
void use(const larkspur_hooks& hooks) {
  std::shared_ptr<Log> log;
  std::shared_ptr<NotificationCenter> center;
  std::shared_ptr<AnalyticsService> analytics;
  if (hooks.log != nullptr) log = std::make_shared<HookLog>(hooks);
  if (hooks.log == nullptr) log = journalLog(static_cast<LogLevel>(hooks.log_level));
  if (hooks.change != nullptr) center = std::make_shared<HookNotificationCenter>(hooks);
  if (hooks.event != nullptr) analytics = std::make_shared<HookAnalyticsService>(hooks);
  useLog(std::make_shared<CollectingLog>(std::move(log)));
  useNotificationCenter(std::move(center));
  useAnalyticsService(std::move(analytics));
}

// Never destroyed: stores may still be closed while the process exits.
std::mutex& processMutex() {
  static std::mutex& mutex = *new std::mutex;
  return mutex;
}

}  // namespace

ProcessLock::ProcessLock() : lock_(processMutex()) {}

std::size_t& ProcessLock::openStores() noexcept {
  static std::size_t count = 0;
  return count;
}

void ProcessLock::collectErrorLines() {
  std::shared_ptr<Log> log = logInPlace();
  if (dynamic_cast<const CollectingLog*>(log.get()) != nullptr) return;
  useLog(std::make_shared<CollectingLog>(std::move(log)));
}

}  // namespace larkspur::c

int larkspur_use_hooks(const larkspur_hooks* hooks, larkspur_error* error) {
  using namespace larkspur::c;
  return reported(error, [&] {
    require(hooks != nullptr, "hooks", " is NULL");
    require(hooks->size >= sizeof(larkspur_hooks), "size", " is not sizeof(larkspur_hooks)");
    require(hooks->log_level >= LARKSPUR_LOG_ERROR && hooks->log_level <= LARKSPUR_LOG_DEBUG,
            "log_level", " is not a level");
    const ProcessLock lock;
    require(ProcessLock::openStores() == 0, "hooks", " cannot change while a store is open");
    use(*hooks);
  });
}
