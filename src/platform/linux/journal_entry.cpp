// SPDX-License-Identifier: Apache-2.0
// Sends entries in the journal's native protocol.
#include "platform/linux/journal_entry.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {
namespace {

constexpr sockaddr_un kJournal{AF_UNIX, "/run/systemd/journal/socket"};

}  // namespace

JournalEntry::JournalEntry(int priority, std::string_view message, std::string_view subsystem) {
  add("MESSAGE", message);
  add("PRIORITY", std::to_string(priority));
  add("SYSLOG_IDENTIFIER", ::program_invocation_short_name);
  add("LARKSPUR_SUBSYSTEM", subsystem);
}

void JournalEntry::add(std::string_view field, std::string_view value) {
  bytes_ += field;
  if (value.find('\n') == std::string_view::npos) {
    bytes_ += '=';
  } else {
    bytes_ += '\n';
    for (unsigned shift = 0; shift < 64; shift += 8)
      bytes_ += static_cast<char>(static_cast<std::uint64_t>(value.size()) >> shift & 0xFF);
  }
  bytes_.append(value) += '\n';
}

void JournalEntry::send() const noexcept {
  // A new socket for each entry: its buffer is never full of earlier ones.
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket ||
      ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&kJournal), sizeof kJournal) != 0)
    return;
  if (::send(socket.get(), bytes_.data(), bytes_.size(), MSG_NOSIGNAL) < 0 &&
      (errno == EMSGSIZE || errno == ENOBUFS))
    sendAsFile(socket.get());
}

/// Sends an entry that is too long for a datagram as a sealed file.
void JournalEntry::sendAsFile(int socket) const noexcept {
  const FileDescriptor file(::memfd_create("journal-entry", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file) return;
  for (std::string_view rest = bytes_; !rest.empty();) {
    const ssize_t written = ::write(file.get(), rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
  const int number = file.get();
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof number)] = {};
  msghdr message = {};
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof number);
  std::memcpy(CMSG_DATA(header), &number, sizeof number);
  ::sendmsg(socket, &message, MSG_NOSIGNAL);
}

}  // namespace larkspur::linuxos
