// SPDX-License-Identifier: Apache-2.0
// The services of the host that a client may replace by its own: log, notification center,
// analytics and user defaults.
//
// Each `use…` function puts one in place for the whole process. Call it before the first
// `LarkspurFramework::createFramework`, while no other thread is in the library; a null pointer
// puts the system's own back. The library keeps the object until it is replaced and may call it
// from any thread that calls the library. What is called from inside an operation must not wait,
// and no operation's result depends on it; only user defaults, on internal builds, have a say.
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

/// How much a log line matters; each level is more talkative than the one before.
enum class LogLevel {
  error,  ///< An operation failed, or start-up did.
  info,   ///< What an operation is doing.
  debug,  ///< What the lower layers see, the unzip tool's listing among it.
};

/// One finished log line; the texts live for the call only.
struct LogEntry {
  LogLevel level;              ///< How much it matters.
  std::string_view subsystem;  ///< Always "LarkspurFramework".
  /// "Framework", "Utilities", "PersistData" or "GetPersistedData"; "Platform" for what the layer
  /// below the library has to say.
  std::string_view category;
  std::string_view message;  ///< The text with its values, without a line break of its own.
};

/// Where log lines go.
class LARKSPUR_EXPORT Log {
 public:
  virtual ~Log();
  /// Whether lines of `level` are wanted now. Asked before a line is made: what is off costs
  /// nothing.
  virtual bool isEnabled(LogLevel level) const noexcept = 0;
  /// Takes one line of an enabled level.
  virtual void write(const LogEntry& entry) noexcept = 0;
};

/// The system's journal, with lines up to and including `threshold`. A journal that is missing,
/// refuses or lags loses lines and delays nothing.
LARKSPUR_EXPORT std::shared_ptr<Log> journalLog(LogLevel threshold);

/// Standard error, with lines up to and including `threshold`: one line and one `write` per entry,
/// "error Utilities: " and the message, its control characters replaced by blanks. Any thread may
/// log. What cannot be written is lost and raises no SIGPIPE; a full pipe or terminal is waited
/// for.
LARKSPUR_EXPORT std::shared_ptr<Log> standardErrorLog(LogLevel threshold);

/// Puts `log` in place; the system's own is `journalLog(LogLevel::error)`.
LARKSPUR_EXPORT void useLog(std::shared_ptr<Log> log);

/// The log in place, for one that looks at the lines and passes them on.
LARKSPUR_EXPORT std::shared_ptr<Log> logInPlace();

/// Announces to the whole system that something of a given name changed.
class LARKSPUR_EXPORT NotificationCenter {
 public:
  virtual ~NotificationCenter();
  /// Makes ready to post; asked at each start-up. False, with the reason in `errno`, when the
  /// system has no notification center: the framework is then not ready. True by default.
  virtual bool open() noexcept;
  /// Announces `name`, for instance "kLarkspurChanged_com.example.vpn", at once.
  virtual void post(const std::string& name) noexcept = 0;
};

/// Puts `center` in place; the system's own broadcasts on the system bus.
LARKSPUR_EXPORT void useNotificationCenter(std::shared_ptr<NotificationCenter> center);

/// A value of an analytics event.
using AnalyticsValue = std::variant<std::string, bool, std::int64_t>;

/// What an analytics event tells: "serviceType" (text), "enabled" (boolean), "size" (bytes, to the
/// nearest 10) and "numberOfManagedServices" (a count).
using AnalyticsPayload = std::map<std::string, AnalyticsValue, std::less<>>;

/// Counts what happens.
class LARKSPUR_EXPORT AnalyticsService {
 public:
  virtual ~AnalyticsService();
  /// Takes one event; `name` is "com.corvid.Larkspur".
  virtual void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept = 0;
};

/// Puts `service` in place; the system's own writes one journal entry per event, which stays on
/// the machine.
LARKSPUR_EXPORT void useAnalyticsService(std::shared_ptr<AnalyticsService> service);

/// Settings of the user that the host runs as. Read by internal builds only.
class LARKSPUR_EXPORT UserDefaults {
 public:
  virtual ~UserDefaults();
  /// The text stored under `key`, or nothing when there is none.
  virtual std::optional<std::string> stringForKey(const std::string& key) = 0;
};

/// Puts `defaults` in place; the system's own reads `larkspur/defaults.json` in the user's
/// configuration directory.
LARKSPUR_EXPORT void useUserDefaults(std::shared_ptr<UserDefaults> defaults);

}  // namespace larkspur
