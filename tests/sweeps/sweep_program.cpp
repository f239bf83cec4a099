// SPDX-License-Identifier: Apache-2.0
// Runs one operation on a managed root, for sweeps that break it from outside:
//   larkspur_sweep_program ROOT VERSION            deletes the service of that version
//   larkspur_sweep_program ROOT VERSION ARCHIVE    installs it
// Prints what was posted and the outcome.
#include <unistd.h>

#include <iostream>

#include <larkspur/larkspur.h>

namespace {

// No bus and no journal: what is broken here is the store and the file system below it.
struct Printer : larkspur::Log, larkspur::NotificationCenter, larkspur::AnalyticsService {
  bool isEnabled(larkspur::LogLevel) const noexcept override { return false; }
  void write(const larkspur::LogEntry&) noexcept override {}
  void post(const std::string& name) noexcept override { std::cout << "post " << name << '\n'; }
  void sendEvent(const std::string&, larkspur::AnalyticsPayload) noexcept override {}
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const auto teller = std::make_shared<Printer>();
  larkspur::useLog(teller);
  larkspur::useNotificationCenter(teller);
  larkspur::useAnalyticsService(teller);
  const auto framework = larkspur::LarkspurFramework::createFramework(argv[1]);
  // The sweeps break the calls between this mark and the one below.
  static_cast<void>(::access("/the operation begins", F_OK));
  try {
    if (argc == 3) {
      framework->deleteService(argv[2]);
    } else {
      framework->installArchive("com.example.vpn", larkspur::FileURL(argv[3]), "application/zip",
                                argv[2], "identifier", "hash", false);
    }
    std::cout << "done\n";
  } catch (const std::exception& failure) {
    std::cout << failure.what() << '\n';
  }
  static_cast<void>(::access("/the operation ends", F_OK));
}
