// SPDX-License-Identifier: Apache-2.0
// A host without bus and journal: it replaces notification center, log and analytics, installs and
// deletes a service, and checks what it was notified of.

#include <larkspur/larkspur.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Represents whatever the host uses to notify its parts of a change.
class HostNotificationCenter : public larkspur::NotificationCenter {
 public:
  void post(const std::string& name) noexcept override {
    try {
      posted.push_back(name);
    } catch (const std::exception&) {
      // Out of memory: only the notification is lost.
    }
  }
  std::vector<std::string> posted;
};

// Passes log lines to the host's logger, here standard error. Debug lines, like the unzip tool's
// listing, are disabled and never formatted.
class HostLog : public larkspur::Log {
 public:
  bool isEnabled(larkspur::LogLevel level) const noexcept override {
    return level != larkspur::LogLevel::debug;
  }
  void write(const larkspur::LogEntry& entry) noexcept override {
    std::cerr << (entry.level == larkspur::LogLevel::error ? "ERROR " : "INFO  ") << entry.subsystem
              << '/' << entry.category << ": " << entry.message << '\n';
    ++lines;
  }
  int lines = 0;
};

class HostMetrics : public larkspur::AnalyticsService {
 public:
  void sendEvent(const std::string&, larkspur::AnalyticsPayload payload) noexcept override {
    const auto managed = payload.find("numberOfManagedServices");
    if (managed == payload.end()) return;
    if (const auto* count = std::get_if<std::int64_t>(&managed->second)) services = *count;
  }
  std::int64_t services = -1;
};

void expect(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string("expected: ") + what);
}

fs::path makeScratchDirectory() {
  std::string path = fs::temp_directory_path() / "embedded-host-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "cannot make " + path);
  }
  return path;
}

void installAndDelete(const fs::path& root, const fs::path& archive) {
  // Before the first createFramework, while no other thread is in the library.
  const auto center = std::make_shared<HostNotificationCenter>();
  const auto log = std::make_shared<HostLog>();
  const auto metrics = std::make_shared<HostMetrics>();
  larkspur::useNotificationCenter(center);
  larkspur::useLog(log);
  larkspur::useAnalyticsService(metrics);

  const auto framework = larkspur::LarkspurFramework::createFramework(root.string());
  framework->installArchive("com.example.vpn", larkspur::FileURL(archive), "application/zip",
                            "version-1", "declaration-7", "digest-not-checked-here", false);
  expect(fs::is_directory(root / "com.example.vpn"), "a tree at the service's path");
  expect(framework->findServiceType("version-1") == "com.example.vpn", "the service is found");
  expect(metrics->services == 1, "an event that counts one service");

  framework->deleteService("version-1");
  expect(!fs::exists(root / "com.example.vpn"), "no tree after the deletion");
  expect(metrics->services == 0, "an event that counts no service");
  expect(center->posted == std::vector<std::string>(2, "kLarkspurChanged_com.example.vpn"),
         "one notification for the install and one for the deletion");
  expect(log->lines > 0, "log lines in the host's logger");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: embedded_host ARCHIVE\n";
    return 2;
  }
  try {
    const fs::path scratch = makeScratchDirectory();
    int status = 0;
    try {
      installAndDelete(scratch / "services", argv[1]);
      std::cout << "embedded_host: installed and deleted a service without a bus\n";
    } catch (const std::exception& error) {
      std::cerr << "embedded_host: " << error.what() << '\n';
      status = 1;
    }
    fs::remove_all(scratch);
    return status;
  } catch (const std::exception& error) {
    std::cerr << "embedded_host: " << error.what() << '\n';
    return 1;
  }
}
