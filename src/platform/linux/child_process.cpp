// SPDX-License-Identifier: Apache-2.0
// Starts children with `vfork`, since `posix_spawn` cannot confine them, and reaps them.
#include "platform/linux/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/system_failure.h"

namespace larkspur::linuxos {
namespace {

constexpr int kExitMilliseconds = 30;

/// Shared by parent and child until the child executes the tool.
struct Launch {
  ChildStart& start;
  char* const* arguments;
  char* const* environment;
  bool hasInput;
  // Volatile: the child writes them while the parent is suspended.
  const char* volatile failedCall = nullptr;
  volatile int code = 0;
};

[[noreturn]] void giveUp(Launch& launch, const char* call) {
  launch.code = errno;
  launch.failedCall = call;
  // Under valgrind and emulators `vfork` is `fork`, and the parent does not see the code. There
  // this text in the tool's error stream makes the call fail.
  constexpr char kText[] = "not started\n";
  ::syscall(SYS_write, launch.start.standardError, kText, sizeof kText - 1);
  while (true) ::syscall(SYS_exit_group, 127);
}

template <typename... Arguments>
int attempt(Launch& launch, const char* call, long number, Arguments... arguments) {
  const long result = ::syscall(number, arguments...);
  if (result < 0) giveUp(launch, call);
  return static_cast<int>(result);
}

/// Runs in the child. Raw system calls only: the wrappers of sanitizers and coverage tools would
/// write to the memory shared with the parent.
[[noreturn]] void runTool(Launch& launch) {
  ChildStart& start = launch.start;
  // To the kernel: default handling, and an empty signal mask.
  static constexpr unsigned long kNone[16] = {};
  constexpr std::size_t kMaskSize = _NSIG / 8;

  // First: the ruleset's descriptor may have the number of a standard stream.
  if (!start.confinement.enter()) giveUp(launch, "landlock_restrict_self");
  attempt(launch, "setsid", SYS_setsid);
  if (!launch.hasInput) {
    const int null = attempt(launch, "open", SYS_openat, AT_FDCWD, "/dev/null", O_RDONLY);
    if (null != STDIN_FILENO) attempt(launch, "dup3", SYS_dup3, null, STDIN_FILENO, 0);
  }
  attempt(launch, "dup3", SYS_dup3, start.standardOutput, STDOUT_FILENO, 0);
  start.standardError = attempt(launch, "dup3", SYS_dup3, start.standardError, STDERR_FILENO, 0);
  attempt(launch, "close_range", SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
  // Fails for SIGKILL and SIGSTOP, which always have default handling.
  for (int signal = 1; signal < _NSIG; ++signal)
    ::syscall(SYS_rt_sigaction, signal, kNone, nullptr, kMaskSize);
  attempt(launch, "sigprocmask", SYS_rt_sigprocmask, SIG_SETMASK, kNone, nullptr, kMaskSize);
  ::syscall(SYS_execve, start.executable.c_str(), launch.arguments, launch.environment);
  giveUp(launch, "execve");
}

/// Returns in the parent only, once the tool runs or could not be started.
[[gnu::noinline]] pid_t forkAndRun(Launch& launch) {
  const pid_t id = ::vfork();    // NOLINT: the child makes system calls only
  if (id == 0) runTool(launch);  // NOLINT(clang-analyzer-unix.Vfork): likewise
  return id;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (std::string& text : texts) {
    checkedPath("execve", text);
    list.push_back(text.data());
  }
  list.push_back(nullptr);
  return list;
}

}  // namespace

Child::Child(ChildStart start) {
  const std::vector<char*> arguments = pointers(start.arguments);
  const std::vector<char*> environment = pointers(start.environment);
  // With standard input closed, the first file that the tool opens would become its input, and it
  // would read an archive's bytes as answers to its prompts.
  const int input = ::fcntl(STDIN_FILENO, F_GETFD);
  checkedPath("execve", start.executable);
  Launch launch{.start = start,
                .arguments = arguments.data(),
                .environment = environment.data(),
                .hasInput = input >= 0 && (input & FD_CLOEXEC) == 0};
  // No handler of the host may run in the child.
  sigset_t all, before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  id_ = forkAndRun(launch);
  const int code = errno;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (id_ < 0) fail(code, "vfork", start.executable);
  if (launch.code != 0) {
    uninterrupted([this] { return ::waitpid(id_, nullptr, 0); });  // It is about to end.
    fail(launch.code, launch.failedCall, start.executable);
  }
  descriptor_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
}

bool Child::reap() noexcept {
  if (id_ < 0) return true;
  siginfo_t end;
  int result = 0;
  do {
    end.si_pid = 0;
    // A pidfd always means this child; where the host reaps every child, a bare id may have been
    // reused.
    result = descriptor_
                 ? ::waitid(P_PIDFD, static_cast<id_t>(descriptor_.get()), &end, WEXITED | WNOHANG)
                 : ::waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOHANG);
  } while (result != 0 && errno == EINTR);
  if (result == 0 && end.si_pid == 0) return false;
  if (result != 0 && errno != ECHILD && descriptor_) {
    // The host closed the pidfd, and its number may belong to another file: do not close it.
    descriptor_.release();
    return reap();
  }
  id_ = -1;
  descriptor_.reset();
  return true;
}

bool Child::reapShortly() noexcept {
  for (int waited = 0; waited < kExitMilliseconds; ++waited) {
    if (reap()) return true;
    pollfd ended{descriptor_.get(), POLLIN, 0};
    ::poll(&ended, 1, 1);
  }
  return reap();
}

}  // namespace larkspur::linuxos
