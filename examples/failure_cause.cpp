// SPDX-License-Identifier: Apache-2.0
// Collects the error lines of one call, so that a client can show why an archive was refused: the
// error itself is one of eight cases, and the output of the unzip tool is only logged.

#include <larkspur/larkspur.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

// Forwards every line, and collects the error lines of the current call.
class CollectingLog : public larkspur::Log {
 public:
  explicit CollectingLog(std::shared_ptr<larkspur::Log> target) : target_(std::move(target)) {}

  bool isEnabled(larkspur::LogLevel level) const noexcept override {
    return (level == larkspur::LogLevel::error && lines() != nullptr) || target_->isEnabled(level);
  }

  void write(const larkspur::LogEntry& entry) noexcept override {
    try {
      if (entry.level == larkspur::LogLevel::error && lines() != nullptr)
        lines()->emplace_back(entry.message);
    } catch (const std::exception&) {
      // Out of memory: only this copy of the line is lost.
    }
    if (target_->isEnabled(entry.level)) target_->write(entry);
  }

  // The current call's lines; null outside of a call.
  static std::vector<std::string>*& lines() {
    thread_local std::vector<std::string>* lines = nullptr;
    return lines;
  }

 private:
  std::shared_ptr<larkspur::Log> target_;
};

// The error lines of one call on this thread.
class CallLog {
 public:
  CallLog() { CollectingLog::lines() = &lines; }
  ~CallLog() { CollectingLog::lines() = nullptr; }
  CallLog(const CallLog&) = delete;
  CallLog& operator=(const CallLog&) = delete;

  std::vector<std::string> lines;
};

// This program changes nothing, so it needs no bus.
class SilentNotificationCenter : public larkspur::NotificationCenter {
 public:
  void post(const std::string&) noexcept override {}
};

int check(const std::string& root, const larkspur::FileURL& archive) {
  const auto framework = larkspur::LarkspurFramework::createFramework(root);
  const CallLog call;
  try {
    framework->checkArchive(archive);
    std::cout << archive.path() << ": good\n";
    return 0;
  } catch (const larkspur::LarkspurError& error) {
    std::cerr << archive.path() << ": " << error.what() << '\n';
    for (const std::string& line : call.lines) std::cerr << "  " << line << '\n';
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: failure_cause ROOT ARCHIVE\n";
    return 2;
  }
  try {
    // Before the first createFramework, while no other thread is in the library.
    larkspur::useLog(std::make_shared<CollectingLog>(larkspur::logInPlace()));
    larkspur::useNotificationCenter(std::make_shared<SilentNotificationCenter>());
    return check(std::filesystem::absolute(argv[1]).string(), larkspur::FileURL(argv[2]));
  } catch (const std::exception& error) {
    std::cerr << "failure_cause: " << error.what() << '\n';
    return 1;
  }
}
