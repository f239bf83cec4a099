// SPDX-License-Identifier: Apache-2.0
// Lines and events in a real journal, and behind a broken one.
#include "platform/linux/system_platform.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>

#include "support/private_journal.h"

namespace larkspur::test {
namespace {

void write(LogLevel level, std::string_view message) {
  journalLog(LogLevel::debug)->write({level, "LarkspurFramework", "Utilities", message});
}

TEST(JournalTest, StoresLinesAndEventsWithTheirFields) {
  withPrivateJournal([] {
    write(LogLevel::error, "failed");
    write(LogLevel::info, "two\nlines=1");
    write(LogLevel::debug, std::string(1 << 20, 'x'));
    AnalyticsPayload payload{
        {"serviceType", "com.corvid.printing"}, {"enabled", true}, {"size", std::int64_t{1230}}};
    payload["numberOfManagedServices"] = std::int64_t{7};
    linuxos::makeAnalyticsService()->sendEvent("com.corvid.Larkspur", payload);
    std::string text;
    for (auto& entry : journalEntries()) {
      for (const char* field : {"PRIORITY", "SUBSYSTEM", "CATEGORY", "EVENT", "SERVICE_TYPE",
                                "ENABLED", "SIZE", "NUMBER_OF_MANAGED_SERVICES"})
        text += entry[(*field == 'P' ? "" : "LARKSPUR_") + std::string(field)] + "|";
      text += std::to_string(entry["MESSAGE_ID"].size()) + entry["MESSAGE"].substr(0, 11) +
              std::to_string(entry["MESSAGE"].size()) + "\n";
    }
    EXPECT_EQ(text, R"(3|LarkspurFramework|Utilities||||||0failed6
6|LarkspurFramework|Utilities||||||0two
lines=111
7|LarkspurFramework|Utilities||||||0xxxxxxxxxxx1048576
6|LarkspurFramework||com.corvid.Larkspur|com.corvid.printing|1|1230|7|32Analytics e15
)");
  });
}

TEST(JournalTest, BrokenJournalNeitherBlocksNorChangesErrno) {
  withPrivateJournal([] {
    pid_t journal = 0;
    std::ifstream("/proc/self/task/" + std::to_string(::getpid()) + "/children") >> journal;
    ASSERT_GT(journal, 0);
    const auto flood = [](const char* state) {
      const auto start = std::chrono::steady_clock::now();
      for (int i = 0; i < 600; ++i) {
        errno = 4711;
        write(LogLevel::error, std::string(i % 3 == 0 ? 100'000 : 10, 'x'));
        EXPECT_EQ(errno, 4711);
      }
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << state;
    };
    ::kill(journal, SIGSTOP);
    flood("frozen");
    ::kill(journal, SIGCONT);
    journalEntries();  // waits until the backlog is read
    write(LogLevel::error, "back");
    EXPECT_EQ(journalEntries().back()["MESSAGE"], "back");
    ::kill(journal, SIGKILL);
    siginfo_t ended;
    ::waitid(P_PID, static_cast<id_t>(journal), &ended, WEXITED | WNOWAIT);
    flood("refusing");
    ::unlink("/run/systemd/journal/socket");
    flood("absent");
  });
}

}  // namespace
}  // namespace larkspur::test
