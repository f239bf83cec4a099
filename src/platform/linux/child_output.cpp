// SPDX-License-Identifier: Apache-2.0
// Reads both output pipes of a child without letting either block it.
#include "platform/linux/child_output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/system_failure.h"

namespace larkspur::linuxos {
namespace {

constexpr int kPipeSize = 1 << 20;
constexpr int kTimerMilliseconds = 20;

/// In a process with descriptors 0 to 2 closed a pipe would get one of these numbers, and what the
/// process prints would be read as the tool's output.
FileDescriptor aboveStandardStreams(FileDescriptor descriptor) {
  if (descriptor.get() > STDERR_FILENO) return descriptor;
  FileDescriptor moved(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved) fail("fcntl", "pipe");
  return moved;
}

}  // namespace

ChildOutput::ChildOutput() {
  for (Pipe& pipe : pipes_) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) fail("pipe2", "pipe");
    FileDescriptor readEnd(ends[0]), writeEnd(ends[1]);
    pipe.readEnd = aboveStandardStreams(std::move(readEnd));
    pipe.writeEnd = aboveStandardStreams(std::move(writeEnd));
    // Only this end: the child's writes must block, not fail.
    if (::fcntl(pipe.readEnd.get(), F_SETFL, O_NONBLOCK) != 0) fail("fcntl", "pipe");
    pipe.large = ::fcntl(pipe.readEnd.get(), F_SETPIPE_SZ, kPipeSize) >= 0;
  }
}

void ChildOutput::closeWriteEnds() noexcept {
  for (Pipe& pipe : pipes_) pipe.writeEnd.reset();
}

bool ChildOutput::atEnd() const noexcept {
  return std::ranges::none_of(pipes_, [](const Pipe& pipe) { return bool(pipe.readEnd); });
}

std::string ChildOutput::readToEnd(Stream stream, Child& child) {
  while (pipes_[stream].readEnd) {
    waitForOutputOrExit(child);
    // Checked before draining, so that the child's last output is in the pipes. After that, a pipe
    // that is still open was inherited by a fork of the host.
    const bool ended = child.reap();
    for (Pipe& pipe : pipes_) {
      drain(pipe);
      if (ended) pipe.readEnd.reset();
    }
  }
  return std::exchange(pipes_[stream].text, {});
}

/// Returns when a stream or the child has ended, when a small pipe has data, or in time to drain a
/// large one before it is full.
void ChildOutput::waitForOutputOrExit(const Child& child) const {
  std::array<pollfd, 3> events{};
  int timeout = child.descriptor() >= 0 ? -1 : kTimerMilliseconds;
  for (std::size_t i = 0; i < pipes_.size(); ++i) {
    // No events: poll still reports the end of the stream, but not its data.
    events[i] = {pipes_[i].readEnd.get(), static_cast<short>(pipes_[i].large ? 0 : POLLIN), 0};
    if (pipes_[i].readEnd && pipes_[i].large) timeout = kTimerMilliseconds;
  }
  events.back() = {child.descriptor(), POLLIN, 0};
  if (::poll(events.data(), events.size(), timeout) < 0 && errno != EINTR) fail("poll", "pipe");
}

void ChildOutput::drain(Pipe& pipe) {
  while (pipe.readEnd) {
    const ssize_t length = ::read(pipe.readEnd.get(), buffer_.data(), buffer_.size());
    if (length > 0) {
      pipe.text.append(buffer_.data(), static_cast<std::size_t>(length));
    } else if (length == 0) {
      pipe.readEnd.reset();
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR) {
      fail("read", "pipe");
    }
  }
}

}  // namespace larkspur::linuxos
