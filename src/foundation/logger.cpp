// SPDX-License-Identifier: Apache-2.0
// Formats log lines and the values in them.
#include "foundation/logger.h"

namespace larkspur {
namespace {

template <typename List, typename Render>
std::string bracketed(const List& list, Render render) {
  std::string text = "[";
  for (const auto& member : list) {
    if (text.size() > 1) text += ", ";
    text += render(member);
  }
  return text += "]";
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

}  // namespace

std::string logText(const std::vector<FileURL>& urls) {
  return bracketed(urls, [](const FileURL& url) { return url.absoluteString(); });
}

std::string logText(const std::vector<std::string>& keys) { return bracketed(keys, quoted); }

std::string logText(const std::map<std::string, std::string>& record) {
  return bracketed(record, [](const auto& member) {
    return quoted(member.first) + ": " + quoted(member.second);
  });
}

bool Logger::isEnabled(LogLevel level) const noexcept { return currentLog().isEnabled(level); }

void Logger::write(LogLevel level, std::string_view format,
                   std::initializer_list<std::string> values) const {
  std::string message;
  const std::string* value = values.begin();
  for (std::size_t from = 0;;) {
    const std::size_t placeholder = format.find('%', from);
    message += format.substr(from, placeholder - from);
    if (placeholder == std::string_view::npos) break;
    message += *value++;
    from = placeholder + 2;
  }
  currentLog().write({level, kSubsystem, category_, message});
}

}  // namespace larkspur
