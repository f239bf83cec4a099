// SPDX-License-Identifier: Apache-2.0
// A real journal for one test.
#include "support/private_journal.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace larkspur::test {
namespace {

constexpr int kNotPossible = 77;

// Mounts an empty file system over each place where a journal keeps sockets or files.
bool coverJournal() {
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0)
    return false;
  for (const char* place : {"/run", "/var/log"}) {
    if (::mount("tmpfs", place, "tmpfs", 0, nullptr) != 0) return false;
  }
  for (const char* place : {"/run/systemd/journal", "/run/log", "/var/log/journal"}) {
    std::filesystem::create_directories(place);
  }
  return true;
}

// The journal ends with the process that runs the body.
bool startJournal() {
  const pid_t journal = ::fork();
  if (journal == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::execl("/lib/systemd/systemd-journald", "systemd-journald", nullptr);
    ::_exit(127);
  }
  for (int tries = 0; tries < 100 && ::waitpid(journal, nullptr, WNOHANG) == 0; ++tries) {
    if (::access("/run/systemd/journal/io.systemd.journal", F_OK) == 0) return true;
    ::usleep(50'000);
  }
  return false;
}

}  // namespace

std::vector<JournalEntry> journalEntries() {
  std::vector<JournalEntry> entries;
  std::FILE* output = ::popen(
      "journalctl --sync && journalctl -D /run/log/journal -qo json --all _TRANSPORT=journal", "r");
  char* line = nullptr;
  std::size_t size = 0;
  while (::getline(&line, &size, output) > 0) {
    entries.push_back({JSONSerialization::object(line).value()});
  }
  std::free(line);
  ::pclose(output);
  return entries;
}

void withPrivateJournal(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!coverJournal() || !startJournal()) ::_exit(kNotPossible);
    body();
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotPossible)
    GTEST_SKIP() << "a private journal needs root, mount namespaces and systemd-journald";
  EXPECT_EQ(status, 0) << "see the failures above";
}

}  // namespace larkspur::test
