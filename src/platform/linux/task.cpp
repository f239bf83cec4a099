// SPDX-License-Identifier: Apache-2.0
// Runs tools as confined child processes, and reaps the children that outlive their tasks.
#include "platform/task.h"

#include <atomic>
#include <cstdlib>
#include <utility>

#include "platform/linux/child_output.h"
#include "platform/linux/child_process.h"
#include "platform/linux/confinement.h"
#include "platform/linux/system_platform.h"

namespace larkspur::linuxos {
namespace {

/// Built and not inherited: variables of the host can change what a tool does, and the locale how
/// it writes names.
std::vector<std::string> environment() {
  std::vector<std::string> variables{"PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8"};
  if (const char* zone = std::getenv("TZ")) variables.push_back(std::string("TZ=") + zone);
  return variables;
}

struct LinkedChild {
  Child child;
  LinkedChild* next = nullptr;
};

/// Children that still ran when their tasks went, to be reaped at a later launch. Without a lock,
/// since a fork might copy it locked; a forked process finds that they are not its own.
std::atomic<LinkedChild*> leftChildren{nullptr};

void leave(std::unique_ptr<LinkedChild> child) noexcept {
  child->next = leftChildren;
  LinkedChild* const left = child.release();
  while (!leftChildren.compare_exchange_weak(left->next, left)) continue;
}

void reapLeftChildren() noexcept {
  for (LinkedChild* next = leftChildren.exchange(nullptr); next != nullptr;) {
    std::unique_ptr<LinkedChild> child(std::exchange(next, next->next));
    if (!child->child.reap()) leave(std::move(child));
  }
}

class ChildTask : public Task {
 public:
  ChildTask(const std::string& executable, std::vector<std::string> arguments,
            const std::string& writableDirectory) {
    Confinement confinement(writableDirectory);
    arguments.insert(arguments.begin(), executable);
    child_->child = Child({.executable = executable,
                           .arguments = std::move(arguments),
                           .environment = environment(),
                           .standardOutput = output_.writeEnd(ChildOutput::standardOutput),
                           .standardError = output_.writeEnd(ChildOutput::standardError),
                           .confinement = confinement});
    output_.closeWriteEnds();
    confinement.report();
  }

  ~ChildTask() override {
    if (output_.atEnd() ? child_->child.reapShortly() : child_->child.reap()) return;
    leave(std::move(child_));
  }

  std::string readStandardOutputToEnd() override {
    return output_.readToEnd(ChildOutput::standardOutput, child_->child);
  }
  std::string readStandardErrorToEnd() override {
    return output_.readToEnd(ChildOutput::standardError, child_->child);
  }

 private:
  ChildOutput output_;
  // Allocated before the child starts, so that leaving it cannot fail.
  std::unique_ptr<LinkedChild> child_ = std::make_unique<LinkedChild>();
};

class ChildTaskLauncher : public TaskLauncher {
 public:
  std::unique_ptr<Task> launch(const FileURL& executable, const std::vector<std::string>& arguments,
                               const FileURL& writableDirectory) override {
    reapLeftChildren();
    return std::make_unique<ChildTask>(executable.path(), arguments, writableDirectory.path());
  }
};

}  // namespace

std::shared_ptr<TaskLauncher> makeTaskLauncher() { return std::make_shared<ChildTaskLauncher>(); }

}  // namespace larkspur::linuxos
