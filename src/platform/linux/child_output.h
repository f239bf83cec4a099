// SPDX-License-Identifier: Apache-2.0
// The two streams of a child, both emptied whichever of them is being read.
//
// The pipes are large and emptied on a timer instead of at each write: waking the reader for every
// line of a tool's listing costs more than a third of the tool's own time.
#pragma once

#include <array>
#include <string>

#include "platform/linux/child_process.h"
#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

class ChildOutput {
 public:
  enum Stream : std::size_t { standardOutput, standardError };

  /// Makes the pipes. Throws `std::system_error`.
  ChildOutput();

  /// The descriptor that becomes the child's stream; above 2, so that no stream lands on another.
  int writeEnd(Stream stream) const noexcept { return pipes_[stream].writeEnd.get(); }
  /// To be called once the child has its own: this process never writes.
  void closeWriteEnds() noexcept;

  /// All bytes of `stream`, once every writer has closed it or `child` has ended. What the other
  /// stream brings meanwhile is kept for its own call. Throws `std::system_error`.
  std::string readToEnd(Stream stream, Child& child);

  /// Whether both streams have come to their end.
  bool atEnd() const noexcept;

 private:
  struct Pipe {
    FileDescriptor readEnd, writeEnd;  // no read end: the stream has ended
    bool large = false;
    std::string text;
  };

  void waitForNews(const Child& child) const;
  void drain(Pipe& pipe);

  std::array<Pipe, 2> pipes_;
  std::array<char, 1 << 16> buffer_;  // not on the stack, of which a host thread may have little
};

}  // namespace larkspur::linuxos
