// SPDX-License-Identifier: Apache-2.0
// Replaces services of the platform within a scope: by wrappers that can fail one call, and by a
// recorder.
#pragma once

#include <algorithm>
#include <cerrno>
#include <functional>
#include <sstream>
#include <system_error>

#include "platform/platform.h"

namespace larkspur::test {

/// Restores the whole platform at the end of the scope; change `currentPlatform()` inside.
struct ScopedPlatform {
  ~ScopedPlatform() { currentPlatform() = before; }
  const Platform before = currentPlatform();
};

/// Called with the name of each call that can fail; an exception is the failure of that call.
using CallHook = std::function<void(const char* call)>;

/// Fails the call. The thread's `errno` is another: what is logged must come from the failure.
[[noreturn]] inline void failCall(const char* call) {
  errno = ENOTTY;
  throw std::system_error(EIO, std::generic_category(), call);
}

/// Calls the hook before the real service, and lists directories in sorted order. A test may
/// override more.
struct HookedFileManager : FileManager {
  using Url = const FileURL&;
  explicit HookedFileManager(CallHook before = [](const char*) {}) : hook(std::move(before)) {}
  FileManager& at(const char* call) const { return hook(call), *real; }
  Existence existence(Url item) override { return real->existence(item); }
  FileURL homeDirectoryForCurrentUser() override { return real->homeDirectoryForCurrentUser(); }
  void createDirectory(Url item, IntermediateDirectories parents, unsigned mode) override {
    at("createDirectory").createDirectory(item, parents, mode);
  }
  std::optional<FileURL> makeItemReplacementDirectory(Url reference) override {
    return at("makeItemReplacementDirectory").makeItemReplacementDirectory(reference);
  }
  void removeItemReplacementDirectory(Url item) override {
    at("removeItemReplacementDirectory").removeItemReplacementDirectory(item);
  }
  void replaceItem(Url item, Url by, std::string_view backup) override {
    at("replaceItem").replaceItem(item, by, backup);
  }
  void copyItem(Url from, Url to) override { at("copyItem").copyItem(from, to); }
  void removeItem(Url item, Url root) override { at("removeItem").removeItem(item, root); }
  void flush(Url item) override { at("flush").flush(item); }
  std::vector<FileURL> contentsOfDirectory(Url directory) override {
    auto items = at("contentsOfDirectory").contentsOfDirectory(directory);
    std::ranges::sort(items, {}, &FileURL::path);
    return items;
  }
  void enumerate(Url top, const std::function<void(EnumeratedItem&)>& visit) override {
    at("enumerate").enumerate(top, visit);
  }
  std::optional<std::int64_t> fileSize(Url item) override { return at("fileSize").fileSize(item); }

  const CallHook hook;
  const std::shared_ptr<FileManager> real = currentPlatform().fileManager;
};

struct HookedAttributes : ExtendedAttributes {
  explicit HookedAttributes(CallHook before) : hook(std::move(before)) {}
  int set(const FileURL& item, const std::string& name, std::string_view value) override {
    return hook("set"), real->set(item, name, value);
  }
  std::ptrdiff_t get(const FileURL& item, const std::string& name, char* to,
                     std::size_t size) override {
    return hook("get"), real->get(item, name, to, size);
  }

  const CallHook hook;
  const std::shared_ptr<ExtendedAttributes> real = currentPlatform().extendedAttributes;
};

/// Puts the hook in front of every step on the disk.
inline void hookEverySeam(const CallHook& before) {
  currentPlatform().fileManager = std::make_shared<HookedFileManager>(before);
  currentPlatform().extendedAttributes = std::make_shared<HookedAttributes>(before);
}

/// Records what is logged, posted and sent in one list: "error Utilities: …", "post …" and "send …"
/// with the payload.
struct Recorder : Log, NotificationCenter, AnalyticsService {
  bool isEnabled(LogLevel) const noexcept override { return true; }
  void write(const LogEntry& entry) noexcept override {
    const char* const level[] = {"error ", "info ", "debug "};
    lines.push_back(level[static_cast<int>(entry.level)] + std::string(entry.category) + ": " +
                    std::string(entry.message));
  }
  bool open() noexcept override { return (errno = openError) == 0 && NotificationCenter::open(); }
  void post(const std::string& name) noexcept override { lines.push_back("post " + name); }
  void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept override {
    lines.push_back("send " + name + text(payload));
  }
  static std::string text(const AnalyticsPayload& payload) {
    std::ostringstream text;
    for (const auto& member : payload)
      std::visit([&](auto value) { text << std::boolalpha << ' ' << member.first << '=' << value; },
                 member.second);
    return text.str();
  }

  std::vector<std::string> lines;
  int openError = 0;
};

/// Replaces log (all levels), notification center and analytics by a recorder.
inline std::shared_ptr<Recorder> recordSignals() {
  const auto recorder = std::make_shared<Recorder>();
  useLog(recorder), useNotificationCenter(recorder), useAnalyticsService(recorder);
  return recorder;
}

}  // namespace larkspur::test
