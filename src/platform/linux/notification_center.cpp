// SPDX-License-Identifier: Apache-2.0
// One connection to the system bus, which outlives neither a fork nor a restart of the bus, and
// whose frozen bus costs a post a second at most.
#include <sys/stat.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <new>

#include "foundation/logger.h"
#include "platform/linux/per_process.h"
#include "platform/linux/system_platform.h"

namespace larkspur::linuxos {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kPath[] = "/com/corvid/Larkspur1";
constexpr char kInterface[] = "com.corvid.Larkspur1";
constexpr char kSignal[] = "Changed";
constexpr std::chrono::seconds kLongestPost{1};
constexpr int kMostIncoming = 1000;
// What a frozen bus may pile up in this process.
constexpr std::uint64_t kMostQueued = 1000;

bool isBroken(int result) {
  return result == -ECONNRESET || result == -ENOTCONN || result == -EPIPE || result == -ESHUTDOWN ||
         result == -ETIMEDOUT;
}

class BusConnection {
 public:
  enum Outcome : int { sent = 0, queued = 1 };  // a negative number is a failure

  explicit BusConnection(BusConnection* inherited) noexcept {
    // The parent goes on with its own copy of the descriptor.
    if (inherited == nullptr || !inherited->mutex.try_lock()) return;
    inherited->drop();
    inherited->mutex.unlock();
  }
  ~BusConnection() { drop(); }
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  int open() noexcept;
  int post(const char* name, Clock::time_point end) noexcept;

  std::mutex mutex;

 private:
  bool isOurs() const noexcept;
  int drain() noexcept;
  int flush(Clock::time_point end) noexcept;
  void lose(int reason) noexcept;
  void drop() noexcept;

  struct Release {
    void operator()(sd_bus* bus) const noexcept { sd_bus_unref(bus); }
  };
  std::unique_ptr<sd_bus, Release> bus_;
  int descriptor_ = -1;
  struct stat socket_ = {};
  bool patient_ = true;
};

/// A host that closes every descriptor takes the number away, and its next file gets it.
bool BusConnection::isOurs() const noexcept {
  struct stat now;
  return ::fstat(descriptor_, &now) == 0 && now.st_dev == socket_.st_dev &&
         now.st_ino == socket_.st_ino;
}

void BusConnection::drop() noexcept {
  if (bus_ == nullptr) return;
  // A connection that broke has closed its own. Else, where the number is a stranger's, the object
  // is given up whole: to release it is to close the number.
  const bool isClosed = sd_bus_get_fd(bus_.get()) == -ENOTCONN;
  if (!isClosed && !isOurs()) static_cast<void>(bus_.release());
  bus_.reset();
}

/// A bus that went away is another one when it comes back, and waited for; one that never answered
/// is not.
void BusConnection::lose(int reason) noexcept {
  if (reason != -ETIMEDOUT) patient_ = true;
  drop();
}

/// Connects unless a living connection is there; the bus need not have answered yet.
int BusConnection::open() noexcept {
  if (bus_ != nullptr && isOurs()) {
    const int result = drain();
    if (result >= 0 && sd_bus_is_open(bus_.get()) > 0) return 0;
    lose(result);
  }
  drop();
  sd_bus* fresh = nullptr;
  if (const int result = sd_bus_open_system(&fresh); result < 0) return result;
  bus_.reset(fresh);
  descriptor_ = sd_bus_get_fd(fresh);
  return ::fstat(descriptor_, &socket_) == 0 ? 0 : -errno;
}

/// Anybody may send to us; what came in is thrown away.
int BusConnection::drain() noexcept {
  int result = 1;
  for (int taken = 0; result > 0 && taken < kMostIncoming; ++taken)
    result = sd_bus_process(bus_.get(), nullptr);
  return result;
}

/// A bus that let one post wait for nothing is not waited for again until it gives a sign of life:
/// the queue goes out with a later post, or never.
int BusConnection::flush(Clock::time_point end) noexcept {
  for (;;) {
    std::uint64_t waiting = 0;
    int result = sd_bus_get_n_queued_write(bus_.get(), &waiting);
    if (result < 0) return result;
    if (waiting == 0) {
      patient_ = true;
      return sent;
    }
    result = sd_bus_process(bus_.get(), nullptr);
    if (result < 0) return result;
    if (result > 0) patient_ = true;
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
    if (!patient_ || left <= 0) {
      patient_ = false;
      return queued;
    }
    if (result > 0) continue;
    result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left));
    if (result < 0 && result != -EINTR) return result;
  }
}

int BusConnection::post(const char* name, Clock::time_point end) noexcept {
  int result = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    result = open();
    if (result < 0) return result;
    std::uint64_t waiting = 0;
    sd_bus_get_n_queued_write(bus_.get(), &waiting);
    if (waiting >= kMostQueued) return -ENOBUFS;
    result = sd_bus_emit_signal(bus_.get(), kPath, kInterface, kSignal, "s", name);
    if (result >= 0) result = flush(end);
    // Only a broken connection is tried again: on a living one the signal may still be queued.
    if (!isBroken(result)) return result;
    lose(result);
  }
  return result;
}

class BusNotificationCenter : public NotificationCenter {
 public:
  bool open() noexcept override;
  void post(const std::string& name) noexcept override;

 private:
  int tryPost(const std::string& name) noexcept;

  PerProcess<BusConnection> connection_;
};

bool BusNotificationCenter::open() noexcept {
  int result = -ENOMEM;
  try {
    BusConnection& connection = connection_.get();
    const std::lock_guard guard(connection.mutex);
    result = connection.open();
  } catch (const std::bad_alloc&) {
  }
  errno = -std::min(result, 0);
  return result >= 0;
}

int BusNotificationCenter::tryPost(const std::string& name) noexcept {
  if (name.find('\0') != std::string::npos) return -EINVAL;
  // Time spent on waiting for another thread's post counts too.
  const Clock::time_point end = Clock::now() + kLongestPost;
  try {
    BusConnection& connection = connection_.get();
    const std::lock_guard guard(connection.mutex);
    return connection.post(name.c_str(), end);
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

void BusNotificationCenter::post(const std::string& name) noexcept {
  const int result = tryPost(name);
  const Logger logger("Platform");
  if (result < 0) logger.error("Failed posting notification %s, errno: %d", name, -result);
  if (result == BusConnection::queued)
    logger.error("Notification %s waits for the bus to answer", name);
}

}  // namespace

std::shared_ptr<NotificationCenter> makeNotificationCenter() {
  return std::make_shared<BusNotificationCenter>();
}

}  // namespace larkspur::linuxos
