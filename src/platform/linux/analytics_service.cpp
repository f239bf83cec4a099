// SPDX-License-Identifier: Apache-2.0
// Writes analytics events to the system's journal.
#include <syslog.h>

#include <cstdint>

#include "foundation/logger.h"
#include "platform/linux/journal_entry.h"
#include "platform/linux/system_platform.h"

namespace larkspur::linuxos {
namespace {

constexpr char kMessageId[] = "8864df6bdee9bd9598301675c291157e";

/// "serviceType" becomes "LARKSPUR_SERVICE_TYPE".
std::string fieldName(std::string_view key) {
  std::string name = "LARKSPUR_";
  for (const char character : key) {
    // By hand: `toupper` depends on the host's locale.
    const bool isLower = 'a' <= character && character <= 'z';
    if ('A' <= character && character <= 'Z') name += '_';
    name += isLower ? static_cast<char>(character - 'a' + 'A') : character;
  }
  return name;
}

std::string fieldText(const AnalyticsValue& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "1" : "0";
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

class JournalAnalytics : public AnalyticsService {
 public:
  void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept override {
    sendEntry(LOG_INFO, "Analytics event", kSubsystem, [&](JournalEntry& entry) {
      entry.add("MESSAGE_ID", kMessageId);
      entry.add("LARKSPUR_EVENT", name);
      for (const auto& [key, value] : payload) entry.add(fieldName(key), fieldText(value));
    });
  }
};

}  // namespace

std::shared_ptr<AnalyticsService> makeAnalyticsService() {
  return std::make_shared<JournalAnalytics>();
}

}  // namespace larkspur::linuxos
