// SPDX-License-Identifier: Apache-2.0
// Writes log lines from fixed format strings, and formats them only when their level is enabled.
//
// "%s" takes a string, a URL, a list of URLs, a list of keys or a record; "%d" a number; "%@" an
// error. A format string whose placeholders do not match its values does not compile.
#pragma once

#include <concepts>
#include <exception>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <larkspur/file_url.h>
#include <larkspur/platform.h>

namespace larkspur {

/// The subsystem of every log entry and event.
inline constexpr char kSubsystem[] = "LarkspurFramework";

// How each type of value is written in a line.
inline std::string logText(std::string_view text) { return std::string(text); }
inline std::string logText(const FileURL& url) { return url.absoluteString(); }
inline std::string logText(int number) { return std::to_string(number); }
inline std::string logText(const std::exception& error) { return error.what(); }
/// As `[URL, URL]`.
std::string logText(const std::vector<FileURL>& urls);
/// As `["key", "key"]`.
std::string logText(const std::vector<std::string>& keys);
/// As `["key": "value", "key": "value"]`.
std::string logText(const std::map<std::string, std::string>& record);

/// The placeholder for a value of the type.
template <typename Value>
constexpr char placeholderFor() {
  if constexpr (std::integral<Value>) return 'd';
  if constexpr (std::derived_from<Value, std::exception>) return '@';
  return 's';
}

/// A format string, checked at compile time against the values that follow it.
template <typename... Values>
class LogFormat {
 public:
  consteval LogFormat(const char* text) : text_(text) {  // NOLINT: implicit on purpose
    const char expected[] = {placeholderFor<Values>()..., '\0'};
    std::size_t count = 0;
    for (const char* at = text; *at != '\0'; ++at) {
      if (*at != '%') continue;
      if (expected[count] != *++at) throw "a placeholder does not match its value";
      ++count;
    }
    if (count != sizeof...(Values)) throw "a value has no placeholder";
  }
  constexpr std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

/// The log that all loggers write to. Defined in platform/, which owns it; never keep the
/// reference.
Log& currentLog() noexcept;

/// Writes lines of one category to the current log; never fails.
class Logger {
 public:
  explicit constexpr Logger(std::string_view category) : category_(category) {}

  bool isEnabled(LogLevel level) const noexcept;

  template <typename... Values>
  void error(LogFormat<std::type_identity_t<Values>...> format,
             const Values&... values) const noexcept {
    log(LogLevel::error, format.text(), values...);
  }
  template <typename... Values>
  void info(LogFormat<std::type_identity_t<Values>...> format,
            const Values&... values) const noexcept {
    log(LogLevel::info, format.text(), values...);
  }
  template <typename... Values>
  void debug(LogFormat<std::type_identity_t<Values>...> format,
             const Values&... values) const noexcept {
    log(LogLevel::debug, format.text(), values...);
  }

 private:
  template <typename... Values>
  void log(LogLevel level, std::string_view format, const Values&... values) const noexcept {
    if (!isEnabled(level)) return;
    try {
      write(level, format, {logText(values)...});
    } catch (const std::exception&) {
      // Out of memory: only the line is lost.
    }
  }
  void write(LogLevel level, std::string_view format,
             std::initializer_list<std::string> values) const;

  std::string_view category_;
};

}  // namespace larkspur
