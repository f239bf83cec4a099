// SPDX-License-Identifier: Apache-2.0
// Starting tools by `posix_spawn`, whose cost does not grow with the host's memory, and reaping
// them.
#include "platform/linux/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <list>
#include <mutex>

#include "platform/linux/child_output.h"
#include "platform/linux/per_process.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/system_platform.h"

namespace larkspur::linuxos {
namespace {

constexpr int kExitMilliseconds = 30;

void check(int code, std::string_view call, std::string_view path) {
  if (code != 0) fail(code, call, path);
}

/// What the child starts with, besides its arguments.
class SpawnSettings {
 public:
  SpawnSettings(const ChildOutput& output, std::string_view path) {
    check(::posix_spawnattr_init(&attributes_), "posix_spawnattr_init", path);
    if (const int code = ::posix_spawn_file_actions_init(&actions_)) {
      ::posix_spawnattr_destroy(&attributes_);
      fail(code, "posix_spawn_file_actions_init", path);
    }
    sigset_t none, all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    // A session of its own has no terminal, so that nothing can ask there for a password.
    ::posix_spawnattr_setflags(&attributes_,
                               POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    if (const int code = addActions(output)) {
      destroy();
      fail(code, "posix_spawn_file_actions", path);
    }
  }
  ~SpawnSettings() { destroy(); }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  void destroy() noexcept {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  int addActions(const ChildOutput& output) {
    const int input = ::fcntl(STDIN_FILENO, F_GETFD);
    int code = 0;
    // Without an input the tool's first file would become its input, and the tool would take the
    // bytes of an archive for answers to its questions.
    if (input < 0 || (input & FD_CLOEXEC) != 0)
      code = ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (code == 0)
      code = ::posix_spawn_file_actions_adddup2(
          &actions_, output.writeEnd(ChildOutput::standardOutput), STDOUT_FILENO);
    if (code == 0)
      code = ::posix_spawn_file_actions_adddup2(
          &actions_, output.writeEnd(ChildOutput::standardError), STDERR_FILENO);
    if (code == 0) code = ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    return code;
  }

  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t actions_;
};

/// Built and not inherited: variables of the host can change what a tool does, and the locale how
/// it writes names.
std::vector<std::string> environment() {
  std::vector<std::string> variables{"PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8"};
  if (const char* zone = std::getenv("TZ")) variables.push_back(std::string("TZ=") + zone);
  return variables;
}

std::vector<char*> pointers(std::vector<std::string>& texts, std::string_view call) {
  std::vector<char*> list;
  for (std::string& text : texts) {
    checkedPath(call, text);
    list.push_back(text.data());
  }
  list.push_back(nullptr);
  return list;
}

/// Children whose tasks are gone, to be reaped on a later occasion.
struct LeftChildren {
  explicit LeftChildren(LeftChildren* inherited) {
    // The parent's children are none of ours.
    if (inherited == nullptr || !inherited->mutex.try_lock()) return;
    inherited->children.clear();
    inherited->mutex.unlock();
  }
  /// Reaps who has ended, and takes over the rest of `more`. Allocates nothing.
  void reap(std::list<Child>& more) noexcept {
    const std::lock_guard guard(mutex);
    children.splice(children.end(), more);
    children.remove_if([](Child& child) { return child.reap(); });
  }

  std::mutex mutex;
  std::list<Child> children;
};

LeftChildren& leftChildren() {
  static auto& instance = *new PerProcess<LeftChildren>;
  return instance.get();
}

class ChildTask : public Task {
 public:
  ChildTask(const std::string& executable, const std::vector<std::string>& arguments) {
    constexpr std::string_view kCall = "posix_spawn";
    std::vector<std::string> names{executable}, variables = environment();
    names.insert(names.end(), arguments.begin(), arguments.end());
    const std::vector<char*> argumentList = pointers(names, kCall);
    const std::vector<char*> variableList = pointers(variables, kCall);
    const SpawnSettings settings(output_, executable);
    std::list<Child> started(1);  // made first: there must be a place for what runs
    pid_t id = -1;
    check(::posix_spawn(&id, executable.c_str(), settings.actions(), settings.attributes(),
                        argumentList.data(), variableList.data()),
          kCall, executable);
    started.front() = Child(id);
    child_.swap(started);
    output_.closeWriteEnds();
  }

  ~ChildTask() override {
    if (output_.atEnd() ? child_.front().reapShortly() : child_.front().reap()) child_.clear();
    leftChildren().reap(child_);
  }

  std::string readStandardOutputToEnd() override {
    return output_.readToEnd(ChildOutput::standardOutput, child_.front());
  }
  std::string readStandardErrorToEnd() override {
    return output_.readToEnd(ChildOutput::standardError, child_.front());
  }

 private:
  ChildOutput output_;
  std::list<Child> child_;  // a list of one, so that handing it on cannot fail
};

class SpawningTaskLauncher : public TaskLauncher {
 public:
  std::unique_ptr<Task> launch(const FileURL& executable,
                               const std::vector<std::string>& arguments) override {
    std::list<Child> none;
    leftChildren().reap(none);
    return std::make_unique<ChildTask>(executable.path(), arguments);
  }
};

}  // namespace

Child::Child(pid_t id) noexcept
    : id_(id), descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, id, 0))) {}

bool Child::reap() noexcept {
  if (id_ < 0) return true;
  siginfo_t end;
  int result = 0;
  do {
    end.si_pid = 0;
    // The descriptor stays with this very child; a bare id may have passed on to another child
    // where the host reaps whatever ends.
    result = descriptor_
                 ? ::waitid(P_PIDFD, static_cast<id_t>(descriptor_.get()), &end, WEXITED | WNOHANG)
                 : ::waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOHANG);
  } while (result != 0 && errno == EINTR);
  if (result == 0 && end.si_pid == 0) return false;
  if (result != 0 && errno != ECHILD && descriptor_) {
    // The number is no child any more, since the host closed all it did not know; not ours to
    // close.
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

std::shared_ptr<TaskLauncher> makeTaskLauncher() {
  return std::make_shared<SpawningTaskLauncher>();
}

}  // namespace larkspur::linuxos
