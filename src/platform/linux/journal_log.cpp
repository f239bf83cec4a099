// SPDX-License-Identifier: Apache-2.0
// Writes log lines to the system's journal.
#include <syslog.h>

#include <larkspur/platform.h>

#include "platform/linux/journal_entry.h"

namespace larkspur {
namespace {

class JournalLog : public Log {
 public:
  explicit JournalLog(LogLevel threshold) : threshold_(threshold) {}

  bool isEnabled(LogLevel level) const noexcept override { return level <= threshold_; }

  void write(const LogEntry& line) noexcept override {
    const int priority = line.level == LogLevel::error  ? LOG_ERR
                         : line.level == LogLevel::info ? LOG_INFO
                                                        : LOG_DEBUG;
    linuxos::sendEntry(priority, line.message, line.subsystem, [&](linuxos::JournalEntry& entry) {
      entry.add("LARKSPUR_CATEGORY", line.category);
    });
  }

 private:
  LogLevel threshold_;
};

}  // namespace

std::shared_ptr<Log> journalLog(LogLevel threshold) {
  return std::make_shared<JournalLog>(threshold);
}

}  // namespace larkspur
