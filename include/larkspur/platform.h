// SPDX-License-Identifier: Apache-2.0
// The services that a host may replace: log, notification center, analytics and user defaults.
//
// Each `use…` function replaces one for the whole process. Call it before the first
// `LarkspurFramework::createFramework`, while no other thread is in the library; a null pointer
// restores the system's own. The library keeps the object until it is replaced, and calls it on the
// threads that call the library. It must not block. No operation's result depends on it, except on
// user defaults, which internal builds read.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <larkspur/export.h>

namespace larkspur {

/// How much a log line matters; each level includes the ones before it.
enum class LogLevel {
  error,  ///< An operation failed, or start-up did.
  info,   ///< What an operation is doing.
  debug,  ///< Details, such as the unzip tool's listing.
};

/// One finished log line; the strings are valid during the call only.
struct LogEntry {
  LogLevel level;              ///< How much it matters.
  std::string_view subsystem;  ///< Always "LarkspurFramework".
  /// "Framework", "Utilities", "PersistData" or "GetPersistedData"; "Platform" for lines of the
  /// layer that talks to the operating system.
  std::string_view category;
  std::string_view message;  ///< The line, without a line break at its end.
};

/// Where log lines go.
class LARKSPUR_EXPORT Log {
 public:
  virtual ~Log();
  /// Whether lines of `level` are wanted now. Called before a line is formatted: a level that is
  /// off costs nothing.
  virtual bool isEnabled(LogLevel level) const noexcept = 0;
  /// Takes one line of an enabled level.
  virtual void write(const LogEntry& entry) noexcept = 0;
};

/// The system's journal, for lines up to and including `threshold`. If the journal is missing or
/// cannot keep up, lines are lost and nothing is delayed.
LARKSPUR_EXPORT std::shared_ptr<Log> journalLog(LogLevel threshold);

/// Standard error, for lines up to and including `threshold`: one line and one `write` per entry,
/// "error Utilities: " and the message, its control characters replaced by blanks. Any thread may
/// log. What cannot be written is lost without SIGPIPE; a full pipe or terminal blocks.
LARKSPUR_EXPORT std::shared_ptr<Log> standardErrorLog(LogLevel threshold);

/// Replaces the log; the system's own is `journalLog(LogLevel::error)`.
LARKSPUR_EXPORT void useLog(std::shared_ptr<Log> log);

/// The log in use, so that another one can look at the lines and pass them on.
LARKSPUR_EXPORT std::shared_ptr<Log> logInPlace();

/// Announces to the whole system that something of a given name changed.
class LARKSPUR_EXPORT NotificationCenter {
 public:
  virtual ~NotificationCenter();
  /// Prepares to post; called at each start-up. Returns false, with the reason in `errno`, if the
  /// system has no notification center: the framework is then not ready. The default returns true.
  virtual bool open() noexcept;
  /// Announces `name`, for instance "kLarkspurChanged_com.example.vpn", at once.
  virtual void post(const std::string& name) noexcept = 0;
};

/// Replaces the notification center; the system's own broadcasts on the system bus.
LARKSPUR_EXPORT void useNotificationCenter(std::shared_ptr<NotificationCenter> center);

/// A value of an analytics event.
using AnalyticsValue = std::variant<std::string, bool, std::int64_t>;

/// The values of an analytics event: "serviceType" (string), "enabled" (boolean), "size" (bytes, to
/// the nearest 10) and "numberOfManagedServices" (integer).
using AnalyticsPayload = std::map<std::string, AnalyticsValue, std::less<>>;

/// Takes analytics events.
class LARKSPUR_EXPORT AnalyticsService {
 public:
  virtual ~AnalyticsService();
  /// Takes one event; `name` is "com.corvid.Larkspur".
  virtual void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept = 0;
};

/// Replaces the analytics service; the system's own writes one journal entry per event, which
/// stays on the machine.
LARKSPUR_EXPORT void useAnalyticsService(std::shared_ptr<AnalyticsService> service);

/// Settings of the user that the host runs as. Read by internal builds only.
class LARKSPUR_EXPORT UserDefaults {
 public:
  virtual ~UserDefaults();
  /// The string stored under `key`, or nothing.
  virtual std::optional<std::string> stringForKey(const std::string& key) = 0;
};

/// Replaces the user defaults; the system's own reads `larkspur/defaults.json` in the user's
/// configuration directory.
LARKSPUR_EXPORT void useUserDefaults(std::shared_ptr<UserDefaults> defaults);

}  // namespace larkspur
