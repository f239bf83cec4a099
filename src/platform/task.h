// SPDX-License-Identifier: Apache-2.0
// Runs a tool as a child process and reads its output.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <larkspur/file_url.h>

namespace larkspur {

/// A running tool. The destructor waits a few milliseconds at most and leaves no descriptor; a tool
/// that still runs is reaped later.
class Task {
 public:
  virtual ~Task() = default;

  // Each read returns all bytes of its stream, once the tool has closed it or ended, and buffers
  // the other stream meanwhile: no order of reads can block the tool. A failed read throws
  // `std::system_error`.
  virtual std::string readStandardOutputToEnd() = 0;
  virtual std::string readStandardErrorToEnd() = 0;
};

class TaskLauncher {
 public:
  virtual ~TaskLauncher() = default;

  /// Starts `executable` with its name and exactly `arguments`, both output streams on pipes,
  /// standard input inherited (empty if the process has none), no other descriptor, a fixed
  /// environment, default signal handling and mask, and no terminal. The tool gains no privileges
  /// and, as far as the system can confine it, changes files only below `writableDirectory` and
  /// cannot reach other processes or the network. Throws `std::system_error` and sets `errno` when
  /// the tool cannot be started.
  virtual std::unique_ptr<Task> launch(const FileURL& executable,
                                       const std::vector<std::string>& arguments,
                                       const FileURL& writableDirectory) = 0;
};

}  // namespace larkspur
