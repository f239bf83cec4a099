// SPDX-License-Identifier: Apache-2.0
// The two output streams of a child; reading one drains both.
//
// The pipes are large and drained on a timer: waking up for every line of a tool's listing costs
// more than a third of the tool's run time.
#pragma once

#include <array>
#include <string>

#include "platform/linux/child_process.h"
#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

class ChildOutput {
 public:
  enum Stream : std::size_t { standardOutput, standardError };

  /// Creates the pipes. Throws `std::system_error`.
  ChildOutput();

  /// The descriptor that becomes the child's stream; above 2, clear of the standard streams.
  int writeEnd(Stream stream) const noexcept { return pipes_[stream].writeEnd.get(); }
  /// Call once the child has started: this process never writes.
  void closeWriteEnds() noexcept;

  /// All bytes of `stream`, once every writer has closed it or `child` has ended. Output on the
  /// other stream is kept for its call. Throws `std::system_error`.
  std::string readToEnd(Stream stream, Child& child);

  /// Whether both streams have ended.
  bool atEnd() const noexcept;

 private:
  struct Pipe {
    FileDescriptor readEnd, writeEnd;  // no read end: the stream has ended
    bool large = false;
    std::string text;
  };

  void waitForOutputOrExit(const Child& child) const;
  void drain(Pipe& pipe);

  std::array<Pipe, 2> pipes_;
  std::array<char, 1 << 16> buffer_;  // not on the stack, which may be small
};

}  // namespace larkspur::linuxos
