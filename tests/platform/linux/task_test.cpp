// SPDX-License-Identifier: Apache-2.0
// Real child processes, in hosts with unusual settings.
#include "platform/linux/system_platform.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <system_error>
#include <thread>

#include "platform/linux/file_descriptor.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace larkspur::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace std::string_literals;

struct ChildProcessTest : LarkspurTest {
  using Output = std::pair<std::string, std::string>;
  static Output run(const std::string& tool, const std::vector<std::string>& arguments,
                    const FileURL& writable = FileURL("/")) {
    const auto task = linuxos::makeTaskLauncher()->launch(FileURL(tool), arguments, writable);
    std::string output = task->readStandardOutputToEnd();
    return {std::move(output), task->readStandardErrorToEnd()};
  }
  static Output shell(const std::string& script) { return run("/bin/sh", {"-c", script}); }
  // The status of a process that exits with the result of `body`.
  static int forked(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
  }
  static long landlockVersion() {
    return ::syscall(SYS_landlock_create_ruleset, nullptr, std::size_t{0},
                     LANDLOCK_CREATE_RULESET_VERSION);
  }
};

TEST_F(ChildProcessTest, AllOutputIsRead) {
  const std::pair<const char*, std::pair<std::size_t, std::size_t>> kCases[] = {
      {"head -c 300000 /dev/zero >&2; echo done", {5, 300'000}},
      {"head -c 5000000 /dev/zero >&2; head -c 5000000 /dev/zero", {5'000'000, 5'000'000}},
      {"exec 2>&-; sleep 0.1; echo late", {5, 0}},
      {"exec >&-; sleep 0.1; echo late >&2", {0, 5}},
      {"echo cut; kill -9 $$", {4, 0}}};
  for (const auto& [script, sizes] : kCases) {
    const Output output = shell(script);
    EXPECT_EQ(std::pair(output.first.size(), output.second.size()), sizes) << script;
  }
}

TEST_F(ChildProcessTest, FailedLaunchSetsErrnoAndLeaksNothing) {
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
  EXPECT_EQ(shell("exec >&- 2>&-; sleep 3"), Output());
  linuxos::makeTaskLauncher()->launch(FileURL("/bin/sleep"), {"3"}, FileURL("/")).reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  std::this_thread::sleep_for(3500ms);
  EXPECT_EQ(shell("echo next").first, "next\n");  // and no child is left
}

// Each host gets the same output from its child, and has no child left.
TEST_F(ChildProcessTest, HostSettingsDoNotReachTheChild) {
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
  const char* const script = R"(exec 4< /etc/passwd; cat; exec 4<&-; ls /proc/self/fd | tr -d '\n'
      grep -cE 'Sig(Blk|Ign):.0{16}|NoNewPrivs:.1' /proc/self/status
      test $(cut -d' ' -f6 /proc/$$/stat) = $$ && echo own session; env -u PWD; echo "$@" >&2)";
  for (const auto& host : kHosts) {
    const auto body = [&] {
      ::dup2(::open("/dev/null", O_RDONLY), 0);
      ::setenv("TZ", "Etc/GMT+3", 1);
      host.second();
      const Output expected{
          "01233\nown session\nPATH=/usr/bin:/bin\nLC_ALL=C.UTF-8\nTZ=Etc/GMT+3\n",
          "a  b  * \xc3\xbc$HOME\n"};
      for (int i = 0; i < 3; ++i)
        if (run("/bin/sh", {"-c", script, "sh", "a  b", "", "*", "\xc3\xbc$HOME"}) != expected)
          return 1;
      return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 2;
    };
    EXPECT_EQ(forked(body), 0) << host.first;
  }
}

TEST_F(ChildProcessTest, LaunchNeedsFewDescriptors) {
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
  EXPECT_EQ(worked, 3);  // four for the pipes; it can do without a pidfd
}

TEST_F(ChildProcessTest, SmallStackIsEnough) {
  std::thread([] {}).join();  // The first thread makes the C library handle a signal.
  startCounting();
  pthread_attr_t little;
  ::pthread_attr_init(&little);
  ::pthread_attr_setstacksize(&little, 64 << 10);
  pthread_t thread;
  const auto body = [](void*) -> void* {
    EXPECT_EQ(shell("echo a").first, "a\n");
    return nullptr;
  };
  ASSERT_EQ(::pthread_create(&thread, &little, body, nullptr), 0);
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&little);
}

TEST_F(ChildProcessTest, ChildWritesOnlyBelowItsDirectory) {
  const long version = landlockVersion();
  if (version < 1) GTEST_SKIP() << "no Landlock here";
  const fs::path scratch = directory() / "deep/scratch", service = root() / "service";
  fs::create_directories(scratch);
  fs::create_directories(service / "sub");
  std::ofstream(service / "file") << "content";
  const Tree before = snapshot(directory());
  const linuxos::FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{AF_UNIX, {}};  // abstract: the name begins with a zero byte
  const std::string name = "test" + std::to_string(::getpid());
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
  ASSERT_EQ(::listen(listener.get(), 1), 0);

  const auto attempt = [&](const std::string& script) {
    return run("/bin/bash", {"-c", "cd $0 && " + script + " && echo done", scratch, service, name},
               FileURL(scratch));
  };
  const std::pair<long, const char*> kRefused[] = {
      {1, "echo >../beside"},
      {1, "echo >../../above"},
      {1, "ln -s $1 link && echo >link/new"},
      {1, "echo >>$1/file"},
      {1, "rm $1/file"},
      {1, "rmdir $1/sub"},
      {1, "mkdir $1/new"},
      {1, "mkfifo $1/new"},
      {1, "ln -s x $1/new"},
      {1, "mv $1/file $1/new"},
      {1, "ln $1/file file && echo >>file"},
      {1, "mknod device c 1 3"},
      {3, "perl -e 'truncate($ARGV[0], 0) or die $!' $1/file"},
      {4, "echo >/dev/tcp/127.0.0.1/9"},
      {6, "kill -0 $PPID"},
      {6, R"(perl -MSocket -e 'socket(S, AF_UNIX, SOCK_STREAM, 0);
             connect(S, pack_sockaddr_un("\0$ARGV[0]")) or die $!' $2)"}};
  for (const auto& [since, script] : kRefused) {
    if (version < since) continue;
    const auto [output, errors] = attempt(script);
    EXPECT_EQ(output, "") << script;
    EXPECT_TRUE(errors.find("denied") + 1 || errors.find("not permitted") + 1 ||
                errors.find("cross-device") + 1)
        << script << ": " << errors;
  }
  EXPECT_EQ(
      attempt("head -c1 $1/file >/dev/null && mkdir -p a/b && echo x >a/b/f && ln a/b/f a/b/g "
              "&& : >a/b/g && mv a/b/g a/b/h && ln -s h a/b/l && mkfifo p && rm -r *"),
      Output("done\n", ""));
  EXPECT_EQ(snapshot(directory()), before);
}

TEST_F(ChildProcessTest, WithoutLandlockToolsRunUnconfined) {
  if (landlockVersion() < 1) GTEST_SKIP() << "nothing to take away";
  const std::tuple<unsigned, unsigned, bool> kKernels[] = {
      {SYS_landlock_create_ruleset, ENOSYS, true},  {SYS_landlock_create_ruleset, EOPNOTSUPP, true},
      {SYS_landlock_create_ruleset, EPERM, true},   {SYS_landlock_restrict_self, E2BIG, true},
      {SYS_landlock_create_ruleset, EMFILE, false}, {SYS_landlock_add_rule, ENOMEM, false},
      {SYS_landlock_restrict_self, EPERM, false}};
  for (const auto& [call, code, runs] : kKernels) {
    const auto body = [call = call, code = code, runs = runs] {
      const auto recorder = recordSignals();
      sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                              BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | code),
                              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
      const sock_fprog program{4, filter};
      ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
      int failures = 0;
      for (int i = 0; i < 2; ++i) try {
          if (shell("echo done").first != "done\n") return 1;
        } catch (const std::system_error& failure) {
          failures += failure.code().value() == static_cast<int>(code);
        }
      const std::string line = "info Platform: Landlock is missing, tools run unconfined, errno: ";
      const std::vector<std::string> once(runs, line + std::to_string(code));
      return recorder->lines == once && failures == (runs ? 0 : 2) ? 0 : 2;
    };
    EXPECT_EQ(forked(body), 0) << call << " " << code;
  }
}

}  // namespace
}  // namespace larkspur::test
