// SPDX-License-Identifier: Apache-2.0
// Log lines and analytics events as entries of the system's journal.
//
// Entries are sent in the journal's own protocol by hand. The library's call for it blocks while
// the journal does not read, and a look at the socket before the call cannot rule that out: what
// fills up first may be the send buffer of a socket that the library keeps to itself.
#include "platform/linux/journal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "platform/linux/file_descriptor.h"

namespace larkspur {
namespace linuxos {
namespace {

constexpr char kAnalyticsMessageId[] = "8864df6bdee9bd9598301675c291157e";
constexpr char kSubsystem[] = "LarkspurFramework";
constexpr sockaddr_un kJournal{AF_UNIX, "/run/systemd/journal/socket"};

/// One entry, field by field. Sending it never waits and never fails the caller: an entry that
/// the journal does not take at once is lost.
class JournalEntry {
 public:
  JournalEntry(int priority, std::string_view message, std::string_view subsystem) {
    add("MESSAGE", message);
    add("PRIORITY", std::to_string(priority));
    add("SYSLOG_IDENTIFIER", ::program_invocation_short_name);
    add("LARKSPUR_SUBSYSTEM", subsystem);
  }

  void add(std::string_view field, std::string_view value) {
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

  void send() noexcept {
    // A socket of its own for each entry, so that its buffer is never full of earlier ones.
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket ||
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&kJournal), sizeof kJournal) != 0)
      return;
    if (::send(socket.get(), bytes_.data(), bytes_.size(), MSG_NOSIGNAL) < 0 &&
        (errno == EMSGSIZE || errno == ENOBUFS))
      sendAsFile(socket.get());
  }

 private:
  /// What is too long for a datagram travels as a file that nobody can change any more.
  void sendAsFile(int socket) const noexcept {
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

class JournalLog : public Log {
 public:
  explicit JournalLog(LogLevel threshold) : threshold_(threshold) {}

  bool isEnabled(LogLevel level) const noexcept override { return level <= threshold_; }

  void write(const LogEntry& line) noexcept override {
    const int priority = line.level == LogLevel::error  ? LOG_ERR
                         : line.level == LogLevel::info ? LOG_INFO
                                                        : LOG_DEBUG;
    sendEntry(priority, line.message, line.subsystem,
              [&](JournalEntry& entry) { entry.add("LARKSPUR_CATEGORY", line.category); });
  }

 private:
  LogLevel threshold_;
};

/// "serviceType" becomes "LARKSPUR_SERVICE_TYPE".
std::string fieldName(std::string_view key) {
  std::string name = "LARKSPUR_";
  for (const char character : key) {
    // By hand: the host's locale must not have a say.
    const bool isLower = 'a' <= character && character <= 'z';
    if ('A' <= character && character <= 'Z') name += '_';
    name += isLower ? static_cast<char>(character - 'a' + 'A') : character;
  }
  return name;
}

std::string fieldText(const AnalyticsValue& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "1" : "0";
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

class JournalAnalytics : public AnalyticsService {
 public:
  void sendEvent(const std::string& name, AnalyticsPayload payload) noexcept override {
    sendEntry(LOG_INFO, "An event for analytics", kSubsystem, [&](JournalEntry& entry) {
      entry.add("MESSAGE_ID", kAnalyticsMessageId);
      entry.add("LARKSPUR_EVENT", name);
      for (const auto& [key, value] : payload) entry.add(fieldName(key), fieldText(value));
    });
  }
};

}  // namespace

std::shared_ptr<AnalyticsService> makeAnalyticsService() {
  return std::make_shared<JournalAnalytics>();
}

}  // namespace linuxos

std::shared_ptr<Log> journalLog(LogLevel threshold) {
  return std::make_shared<linuxos::JournalLog>(threshold);
}

}  // namespace larkspur
