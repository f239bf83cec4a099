// SPDX-License-Identifier: Apache-2.0
// One entry of the system's journal, which neither waits nor fails.
//
// Entries are sent in the journal's own protocol by hand. The library's call for it blocks while
// the journal does not read, and a look at the socket before the call cannot rule that out: what
// fills up first may be the send buffer of a socket that the library keeps to itself.
#pragma once

#include <cerrno>
#include <new>
#include <string>
#include <string_view>

namespace larkspur::linuxos {

/// Built field by field.
class JournalEntry {
 public:
  JournalEntry(int priority, std::string_view message, std::string_view subsystem);
  void add(std::string_view field, std::string_view value);
  /// An entry that the journal does not take at once is lost.
  void send() const noexcept;

 private:
  void sendAsFile(int socket) const noexcept;

  std::string bytes_;
};

/// Makes and sends an entry; the caller's `errno` is often what its next line is about.
template <typename Fill>
void sendEntry(int priority, std::string_view message, std::string_view subsystem,
               Fill fill) noexcept {
  const int before = errno;
  try {
    JournalEntry entry(priority, message, subsystem);
    fill(entry);
    entry.send();
  } catch (const std::bad_alloc&) {
    // The line is lost, the operation is not.
  }
  errno = before;
}

}  // namespace larkspur::linuxos
