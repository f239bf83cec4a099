// SPDX-License-Identifier: Apache-2.0
// Real children that talk much, end oddly or do not end, in hosts that are set up oddly.
#include "platform/linux/system_platform.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <system_error>
#include <thread>

#include "support/temporary_root.h"

namespace larkspur::test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

struct ChildProcessTest : LarkspurTest {
  using Said = std::pair<std::string, std::string>;
  static Said run(const std::string& tool, const std::vector<std::string>& arguments) {
    const auto task = linuxos::makeTaskLauncher()->launch(FileURL(tool), arguments, FileURL("/"));
    std::string output = task->readStandardOutputToEnd();
    return {std::move(output), task->readStandardErrorToEnd()};
  }
  static Said shell(const std::string& script) { return run("/bin/sh", {"-c", script}); }
};

TEST_F(ChildProcessTest, EverythingSaidIsRead) {
  const std::pair<const char*, std::pair<std::size_t, std::size_t>> kCases[] = {
      {"head -c 300000 /dev/zero >&2; echo done", {5, 300'000}},
      {"head -c 5000000 /dev/zero >&2; head -c 5000000 /dev/zero", {5'000'000, 5'000'000}},
      {"exec 2>&-; sleep 0.1; echo late", {5, 0}},
      {"exec >&-; sleep 0.1; echo late >&2", {0, 5}},
      {"echo cut; kill -9 $$", {4, 0}}};
  for (const auto& [script, sizes] : kCases) {
    const Said said = shell(script);
    EXPECT_EQ(std::pair(said.first.size(), said.second.size()), sizes) << script;
  }
}

TEST_F(ChildProcessTest, AFailedLaunchLeavesItsNumberAndNothingElse) {
  using Case = std::tuple<std::string, std::string, int>;
  for (const auto& [tool, argument, code] :
       {Case{"/no/such/tool", "", ENOENT}, Case{"/etc/passwd", "", EACCES},
        Case{"/bin/true\0x"s, "", EINVAL}, Case{"/bin/true", "cut\0short"s, EINVAL}})
    try {
      run(tool, {argument});
      ADD_FAILURE() << tool;
    } catch (const std::system_error& failure) {
      EXPECT_EQ(std::pair(errno, failure.code().value()), std::pair(code, code)) << failure.what();
    }
}

TEST_F(ChildProcessTest, OnlyTheChildIsWaitedFor) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(shell("sleep 9 & echo inherited").first, "inherited\n");
  EXPECT_EQ(shell("exec >&- 2>&-; sleep 3"), Said());
  linuxos::makeTaskLauncher()->launch(FileURL("/bin/sleep"), {"3"}, FileURL("/")).reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  std::this_thread::sleep_for(3500ms);
  EXPECT_EQ(shell("echo next").first, "next\n");  // and nobody is left
}

// Every host says the same to its child, and has no child left.
TEST_F(ChildProcessTest, NothingOfTheHostMatters) {
  static constexpr sigset_t kAllSignals = {{~0UL}};
  const std::pair<const char*, std::function<void()>> kHosts[] = {
      {"no standard streams", [] { ::close_range(0, 2, 0); }},
      {"an input not for others", [] { ::fcntl(0, F_SETFD, FD_CLOEXEC); }},
      {"a descriptor for others", [] { ::dup2(1, 57); }},
      {"settings", [] { ::setenv("UNZIP", "-t", 1), ::setenv("LC_ALL", "C", 1); }},
      {"SIGCHLD ignored", [] { ::signal(SIGCHLD, SIG_IGN); }},
      {"SIGCHLD handled", [] { ::signal(SIGCHLD, [](int) { ::wait(nullptr); }); }},
      {"signals blocked", [] { ::sigprocmask(SIG_BLOCK, &kAllSignals, nullptr); }},
      {"signals ignored", [] {
         for (int i = 1; i < SIGSYS; ++i) ::signal(i, SIG_IGN);
       }}};
  // The C library keeps signals 32 and 33 to itself.
  const char* const script = R"(exec 4< /etc/passwd; cat; exec 4<&-; ls /proc/self/fd | tr -d '\n'
      grep -cE 'Sig(Blk:.0{16}|Ign:.0{7}[01][08]0{7})' /proc/self/status
      test $(cut -d' ' -f6 /proc/$$/stat) = $$ && echo own session; env -u PWD; echo "$@" >&2)";
  for (const auto& [host, setUp] : kHosts) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::dup2(::open("/dev/null", O_RDONLY), 0);
      ::setenv("TZ", "Etc/GMT+3", 1);
      setUp();
      const Said expected{"01232\nown session\nPATH=/usr/bin:/bin\nLC_ALL=C.UTF-8\nTZ=Etc/GMT+3\n",
                          "a  b  * \xc3\xbc$HOME\n"};
      for (int i = 0; i < 3; ++i)
        if (run("/bin/sh", {"-c", script, "sh", "a  b", "", "*", "\xc3\xbc$HOME"}) != expected)
          ::_exit(1);
      ::_exit(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 2);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << host;
  }
}

TEST_F(ChildProcessTest, WithoutDescriptorsALaunchFailsOrWorks) {
  rlimit usual;
  ::getrlimit(RLIMIT_NOFILE, &usual);
  const auto lowest = static_cast<rlim_t>(::dup(0));
  ::close(static_cast<int>(lowest));
  int worked = 0;
  for (rlimit few{lowest, usual.rlim_max}; few.rlim_cur < lowest + 9; ++few.rlim_cur) {
    ::setrlimit(RLIMIT_NOFILE, &few);
    try {
      worked += shell("sleep 3 & echo done").first == "done\n";
    } catch (const std::system_error& failure) {
      EXPECT_EQ(failure.code().value(), EMFILE) << failure.what();
    }
    ::setrlimit(RLIMIT_NOFILE, &usual);
  }
  EXPECT_EQ(worked, 3);  // with four for the pipes; the one for the child it can do without
}

}  // namespace
}  // namespace larkspur::test
