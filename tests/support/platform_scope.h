// SPDX-License-Identifier: Apache-2.0
// Replaces services of the platform within a scope: by wrappers that can fail one call, and by a
// recorder.
#pragma once

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace larkspur::test {

/// Restores the whole platform at the end of the scope; change `currentPlatform()` inside.
class ScopedPlatform {
 public:
  ScopedPlatform() = default;
  ~ScopedPlatform() { currentPlatform() = saved_; }
  ScopedPlatform(const ScopedPlatform&) = delete;
  ScopedPlatform& operator=(const ScopedPlatform&) = delete;

 private:
  Platform saved_ = currentPlatform();
};

/// Called with the name of each forwarded call that can fail. An exception is the failure of that
/// call; for calls with a result, `std::system_error` becomes a negative result.
using CallHook = std::function<void(const char* call)>;

/// Makes the call of that name fail, the `nth` time (0: every time), with the number `code`. The
/// thread's `errno` is another: what is logged must come from the failure itself.
inline CallHook failOn(std::string call, int code, int nth = 1) {
  return [=, count = std::make_shared<int>(0)](const char* name) {
    if (call != name || (++*count != nth && nth != 0)) return;
    errno = ENOTTY;
    throw std::system_error(code, std::generic_category(), call);
  };
}

/// A wrapper's hook and the real service. A test overrides a method of a wrapper below, inherits
/// this constructor and installs it with `wrap`.
template <typename Seam>
class Forwarding : public Seam {
 public:
  Forwarding(std::shared_ptr<Seam> target, CallHook before)
      : target_(std::move(target)), before_(std::move(before)) {}

 protected:
  Seam& after(const char* call) const {
    if (before_) before_(call);
    return *target_;
  }
  template <typename Answer, typename Call>
  Answer answer(const char* name, Answer failed, Call call) const {
    try {
      after(name);
    } catch (const std::system_error& failure) {
      errno = failure.code().value();
      return failed;
    }
    return call(*target_);
  }

  std::shared_ptr<Seam> target_;
  CallHook before_;
};

struct ForwardingItem : Forwarding<EnumeratedItem> {
  using Forwarding::Forwarding;
  FileURL url() const override { return target_->url(); }
  ItemKind kind() override { return after("kind").kind(); }
  void setPosixPermissions(unsigned mode) override {
    after("setPosixPermissions").setPosixPermissions(mode);
  }
};

struct ForwardingFileManager : Forwarding<FileManager> {
  using Forwarding::Forwarding;
  Existence existence(const FileURL& item) override {
    return answer("existence", Existence::nothing,
                  [&](auto& real) { return real.existence(item); });
  }
  void createDirectory(const FileURL& item, IntermediateDirectories parents,
                       unsigned mode) override {
    after("createDirectory").createDirectory(item, parents, mode);
  }
  FileURL homeDirectoryForCurrentUser() override {
    return after("homeDirectoryForCurrentUser").homeDirectoryForCurrentUser();
  }
  std::optional<FileURL> makeItemReplacementDirectory(const FileURL& reference) override {
    return after("makeItemReplacementDirectory").makeItemReplacementDirectory(reference);
  }
  void replaceItem(const FileURL& item, const FileURL& by, std::string_view backup) override {
    after("replaceItem").replaceItem(item, by, backup);
  }
  void copyItem(const FileURL& source, const FileURL& target) override {
    after("copyItem").copyItem(source, target);
  }
  void removeItem(const FileURL& item, const FileURL& root) override {
    after("removeItem").removeItem(item, root);
  }
  void removeItemReplacementDirectory(const FileURL& directory) override {
    after("removeItemReplacementDirectory").removeItemReplacementDirectory(directory);
  }
  void flush(const FileURL& item) override { after("flush").flush(item); }
  std::vector<FileURL> contentsOfDirectory(const FileURL& directory) override {
    return after("contentsOfDirectory").contentsOfDirectory(directory);
  }
  void enumerate(const FileURL& directory,
                 const std::function<void(EnumeratedItem&)>& visit) override {
    after("enumerate").enumerate(directory, [&](EnumeratedItem& item) {
      ForwardingItem wrapped({std::shared_ptr<void>(), &item}, before_);
      visit(wrapped);
    });
  }
  std::optional<std::int64_t> fileSize(const FileURL& item) override {
    return after("fileSize").fileSize(item);
  }
};

struct ForwardingTask : Forwarding<Task> {
  using Forwarding::Forwarding;
  std::string readStandardOutputToEnd() override {
    return after("readStandardOutputToEnd").readStandardOutputToEnd();
  }
  std::string readStandardErrorToEnd() override {
    return after("readStandardErrorToEnd").readStandardErrorToEnd();
  }
};

struct ForwardingTaskLauncher : Forwarding<TaskLauncher> {
  using Forwarding::Forwarding;
  std::unique_ptr<Task> launch(const FileURL& tool, const std::vector<std::string>& with,
                               const FileURL& writable) override {
    return std::make_unique<ForwardingTask>(after("launch").launch(tool, with, writable), before_);
  }
};

struct ForwardingExtendedAttributes : Forwarding<ExtendedAttributes> {
  using Forwarding::Forwarding;
  int set(const FileURL& item, const std::string& name, std::string_view value) override {
    return answer("set", -1, [&](auto& real) { return real.set(item, name, value); });
  }
  std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                     std::size_t size) override {
    return answer("get", std::ptrdiff_t{-1},
                  [&](auto& real) { return real.get(item, name, buffer, size); });
  }
};

struct ForwardingNotificationCenter : Forwarding<NotificationCenter> {
  using Forwarding::Forwarding;
  bool open() noexcept override {
    return answer("open", false, [](auto& real) { return real.open(); });
  }
  void post(const std::string& name) noexcept override { target_->post(name); }
};

/// Wraps one service of the current platform.
template <typename Wrapper>
void wrap(auto seam, CallHook before = {}) {
  auto& current = currentPlatform().*seam;
  current = std::make_shared<Wrapper>(current, std::move(before));
}

/// Puts a wrapper with the same hook around every seam whose calls can fail.
inline void hookEverySeam(const CallHook& before) {
  wrap<ForwardingFileManager>(&Platform::fileManager, before);
  wrap<ForwardingTaskLauncher>(&Platform::taskLauncher, before);
  wrap<ForwardingExtendedAttributes>(&Platform::extendedAttributes, before);
  wrap<ForwardingNotificationCenter>(&Platform::notificationCenter, before);
}

/// Records what is logged, posted and sent in one list: "error Utilities: …", "post …" and "send …"
/// with the payload, its strings quoted.
struct Recorder : Log, NotificationCenter, AnalyticsService {
  explicit Recorder(LogLevel level = LogLevel::debug) : threshold(level) {}
  bool isEnabled(LogLevel level) const noexcept override { return level <= threshold; }
  void write(const LogEntry& entry) noexcept override {
    static constexpr const char* kNames[] = {"error ", "info ", "debug "};
    lines.push_back(kNames[static_cast<int>(entry.level)] + std::string(entry.category) + ": " +
                    std::string(entry.message));
  }
  void post(const std::string& name) noexcept override { lines.push_back("post " + name); }
  void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept override {
    lines.push_back("send " + name + text(payload));
  }
  static std::string text(const AnalyticsPayload& payload) {
    std::string text;
    for (const auto& [key, value] : payload) {
      const auto* flag = std::get_if<bool>(&value);
      const auto* number = std::get_if<std::int64_t>(&value);
      text += " " + key + "=" +
              (flag     ? (*flag ? "true" : "false")
               : number ? std::to_string(*number)
                        : '"' + std::get<std::string>(value) + '"');
    }
    return text;
  }

  std::vector<std::string> lines;
  LogLevel threshold;
};

/// Replaces log (all levels), notification center and analytics by a recorder.
inline std::shared_ptr<Recorder> recordSignals() {
  auto recorder = std::make_shared<Recorder>();
  currentPlatform().log = recorder;
  currentPlatform().notificationCenter = recorder;
  currentPlatform().analyticsService = recorder;
  return recorder;
}

}  // namespace larkspur::test
