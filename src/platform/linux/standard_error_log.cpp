// SPDX-License-Identifier: Apache-2.0
// Writes log lines to standard error.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>

#include <larkspur/platform.h>

#include "platform/linux/system_failure.h"

namespace larkspur {
namespace {

/// Writes without raising SIGPIPE, which would end the host.
void writeQuietly(const std::string& line) noexcept {
  sigset_t pipe, before, pending;
  ::sigemptyset(&pipe);
  ::sigaddset(&pipe, SIGPIPE);
  ::sigpending(&pending);
  ::pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const ssize_t written =
      linuxos::uninterrupted([&] { return ::write(STDERR_FILENO, line.data(), line.size()); });
  // A SIGPIPE that was already pending belongs to the host.
  constexpr timespec kNow{};
  if (written < 0 && errno == EPIPE && ::sigismember(&pending, SIGPIPE) == 0)
    ::sigtimedwait(&pipe, nullptr, &kNow);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

class StandardErrorLog : public Log {
 public:
  explicit StandardErrorLog(LogLevel threshold) : threshold_(threshold) {}

  bool isEnabled(LogLevel level) const noexcept override { return level <= threshold_; }

  void write(const LogEntry& entry) noexcept override {
    const int before = errno;
    try {
      std::string line = entry.level == LogLevel::error  ? "error "
                         : entry.level == LogLevel::info ? "info "
                                                         : "debug ";
      line.append(entry.category).append(": ").append(entry.message);
      // Output of the tool contains line breaks, and must not send control sequences to a terminal.
      const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
      };
      std::replace_if(line.begin(), line.end(), isControl, ' ');
      writeQuietly(line += '\n');
    } catch (const std::bad_alloc&) {
      // Out of memory: only the line is lost.
    }
    errno = before;
  }

 private:
  LogLevel threshold_;
};

}  // namespace

std::shared_ptr<Log> standardErrorLog(LogLevel threshold) {
  return std::make_shared<StandardErrorLog>(threshold);
}

}  // namespace larkspur
