// SPDX-License-Identifier: Apache-2.0
// Real child processes, in hosts with unusual settings.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <thread>

#include "platform/linux/system_platform.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace larkspur::test {

using namespace std::string_literals;

struct TaskTest : LarkspurTest {
  using Output = std::pair<std::string, std::string>;
  static Output run(const std::string& tool, const std::vector<std::string>& arguments,
                    const FileURL& writable = FileURL("/")) {
    const auto task = linuxos::makeTaskLauncher()->launch(FileURL(tool), arguments, writable);
    return {task->readStandardOutputToEnd(), task->readStandardErrorToEnd()};
  }
  static Output shell(const std::string& script) { return run("/bin/bash", {"-c", script}); }
  const long landlock = ::syscall(SYS_landlock_create_ruleset, nullptr, std::size_t{0},
                                  LANDLOCK_CREATE_RULESET_VERSION);
};

TEST_F(TaskTest, ReadsAllOutputAndWaitsOnlyForTheChild) {
  const std::string much(5 << 20, '\0');
  EXPECT_TRUE(shell("head -c 5M /dev/zero >&2; head -c 5M /dev/zero") == Output(much, much));
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(shell("echo a") == Output("a\n", "") && ::waitpid(-1, nullptr, WNOHANG) == -1);
  EXPECT_EQ(shell("exec 2>&-; sleep 0.1; echo late"), Output("late\n", ""));
  EXPECT_EQ(shell("exec >&-; sleep 0.1; echo late >&2"), Output("", "late\n"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(shell("sleep 9 & echo inherited").first, "inherited\n");
  EXPECT_EQ(shell("exec >&- 2>&-; sleep 3"), Output());
  linuxos::makeTaskLauncher()->launch(FileURL("/bin/sleep"), {"3"}, FileURL("/")).reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));  // The next launch reaps them.
}

TEST_F(TaskTest, FailedLaunchSetsErrnoAndChangesNothing) {
  EXPECT_EQ(failureOf([] { run("/no/such/tool", {}); }), ENOENT);
  EXPECT_EQ(failureOf([] { run("/bin/true\0x"s, {}); }), EINVAL);
  EXPECT_EQ(failureOf([] { run("/bin/true", {"cut\0short"s}); }), EINVAL);
  sh("sleep 0.5; grep -q 'SigBlk:.0*10000$' /proc/$PPID/status");  // SIGCHLD, by `system`
}

TEST_F(TaskTest, HostSettingsDoNotReachTheChild) {
  const char* const script = R"(exec 4< /etc/passwd; cat; exec 4<&-; ls /proc/self/fd | tr -d '\n'
      grep -cE 'Sig(Blk|Ign):.0{16}|NoNewPrivs:.1' /proc/self/status
      test $(cut -d' ' -f6 /proc/$$/stat) = $$ && echo own session
      env -u PWD -u SHLVL -u _ | sort; echo "$@" >&2)";
  for (const bool hasStreams : {true, false})
    inChild([&] {
      ::setenv("UNZIP", "-t", 1), ::setenv("LC_ALL", "C", 1), ::setenv("TZ", "Etc/GMT+3", 1);
      static constexpr sigset_t kAll = {{~0UL}};
      ::sigprocmask(SIG_BLOCK, &kAll, nullptr);
      for (int i = 1; i < SIGSYS; ++i) ::signal(i, SIG_IGN);
      // 57 must not leak into the tool; it gets no standard input.
      hasStreams ? ::dup2(1, 57), ::fcntl(0, F_SETFD, FD_CLOEXEC) : ::close_range(0, 2, 0);
      startCounting();
      EXPECT_EQ(run("/bin/bash", {"-c", script, "sh", "a  b", "", "*", "ü$HOME"}),
                Output("01233\nown session\nLC_ALL=C.UTF-8\nPATH=/usr/bin:/bin\nTZ=Etc/GMT+3\n",
                       "a  b  * ü$HOME\n"));
      TearDown();
    });
}

TEST_F(TaskTest, ChildWritesOnlyBelowItsDirectory) {
  if (landlock < 1) GTEST_SKIP() << "no Landlock here";
  sh("mkdir -p scratch service/sub && echo content > service/file");
  const Tree before = snapshot(root());
  // A listener outside, on an abstract socket.
  sh("perl -e 'socket(S, 1, 1, 0); bind(S, pack(\"Sa108\", 1, \"\\0$ENV{PWD}\")) or die $!;"
     " listen(S, 1); fork or sleep 20' </dev/null >/dev/null 2>&1");
  // Each attempt follows the version of Landlock that first refuses it.
  const char* const script = R"(cd $1/scratch
while read -r since attempt; do
  [ $0 -lt $since ] || ! (eval "$attempt") || echo "$attempt"
done << 'end' 2>&1 | grep -vE 'denied|not permitted|cross-device'
1 echo >../beside
1 echo >>../service/file
1 rm ../service/file
1 rmdir ../service/sub
1 mkdir ../service/new
1 mkfifo ../service/new
1 ln -s x ../service/new
1 ln ../service/file file && echo >>file
1 mknod device c 1 3
3 perl -e 'truncate("../service/file", 0) or die $!'
4 echo >/dev/tcp/127.0.0.1/9
6 kill -0 $PPID
6 perl -e 'socket(S, 1, 1, 0); connect(S, pack("Sa108", 1, "\0$ARGV[0]")) or die $!' $1
end
head -c1 ../service/file >/dev/null && mkdir -p a/b && echo x >a/b/f && ln a/b/f a/b/g &&
  : >a/b/g && mv a/b/g a/b/h && ln -s h a/b/l && mkfifo p && rm -r * && echo allowed)";
  EXPECT_EQ(run("/bin/bash", {"-c", script, std::to_string(landlock), root()},
                FileURL(root() / "scratch")),
            Output("allowed\n", ""));
  EXPECT_EQ(snapshot(root()), before);
}

TEST_F(TaskTest, WithoutLandlockToolsRunUnconfined) {
  if (landlock < 1) GTEST_SKIP() << "no Landlock here";
  const std::tuple<unsigned, unsigned, bool> kernels[] = {
      {SYS_landlock_create_ruleset, ENOSYS, true},  {SYS_landlock_create_ruleset, EOPNOTSUPP, true},
      {SYS_landlock_create_ruleset, EPERM, true},   {SYS_landlock_restrict_self, E2BIG, true},
      {SYS_landlock_create_ruleset, EMFILE, false}, {SYS_landlock_add_rule, ENOMEM, false},
      {SYS_landlock_restrict_self, EPERM, false}};
  for (const auto& kernel : kernels)
    inChild([&] {
      const auto [call, code, runs] = kernel;
      const auto recorder = recordSignals();
      sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                              BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
      const sock_fprog program{4, filter};
      ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
      for (int i = 0; i < 2; ++i)
        EXPECT_EQ(failureOf([] { shell("true"); }), runs ? 0 : static_cast<int>(code));
      const std::string line = "info Platform: Landlock is missing, tools run unconfined, errno: ";
      EXPECT_EQ(recorder->lines, std::vector<std::string>(runs, line + std::to_string(code)));
    });
}

}  // namespace larkspur::test
