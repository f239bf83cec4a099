// SPDX-License-Identifier: Apache-2.0
// Running a tool as a child process and reading what it says.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <larkspur/file_url.h>

namespace larkspur {

/// A tool that was started. Destroying it leaves neither descriptor nor child: a tool that still
/// runs is left to itself and reaped once it has ended; it is waited for a
/// few milliseconds at most.
class Task {
 public:
  virtual ~Task() = default;

  // Each read returns all bytes of its stream, once the tool has closed it or ended. What arrives
  // on the other stream meanwhile is set aside, however much it is, so that no order of reads can
  // stall the tool. A failed read throws `std::system_error`.
  virtual std::string readStandardOutputToEnd() = 0;
  virtual std::string readStandardErrorToEnd() = 0;
};

class TaskLauncher {
 public:
  virtual ~TaskLauncher() = default;

  /// Starts `executable` with exactly `arguments` behind its own name, both output streams on
  /// pipes, standard input inherited (an empty stream where the process has none), no other
  /// descriptor, an environment that is built and not inherited, default signal dispositions and
  /// mask, and no terminal. It gains no privileges and, as far as the system can confine it,
  /// changes files only below `writableDirectory` and reaches no other process and no network.
  /// Throws `std::system_error` when it cannot be started, with `errno` left; nothing runs then.
  virtual std::unique_ptr<Task> launch(const FileURL& executable,
                                       const std::vector<std::string>& arguments,
                                       const FileURL& writableDirectory) = 0;
};

}  // namespace larkspur
