// SPDX-License-Identifier: Apache-2.0
// An entry for the system's journal; sending it neither blocks nor fails.
//
// Not through libsystemd: its call blocks while the journal does not read. Polling the socket first
// does not prevent that, since the send buffer that fills up may be that of libsystemd's own
// socket.
#pragma once

#include <cerrno>
#include <new>
#include <string>
#include <string_view>

namespace larkspur::linuxos {

class JournalEntry {
 public:
  JournalEntry(int priority, std::string_view message, std::string_view subsystem);
  void add(std::string_view field, std::string_view value);
  /// Drops the entry if the journal does not take it at once.
  void send() const noexcept;

 private:
  void sendAsFile(int socket) const noexcept;

  std::string bytes_;
};

/// Builds and sends an entry. Preserves `errno`, which the caller often logs next.
template <typename Fill>
void sendEntry(int priority, std::string_view message, std::string_view subsystem,
               Fill fill) noexcept {
  const int before = errno;
  try {
    JournalEntry entry(priority, message, subsystem);
    fill(entry);
    entry.send();
  } catch (const std::bad_alloc&) {
    // Out of memory: only the entry is lost.
  }
  errno = before;
}

}  // namespace larkspur::linuxos
