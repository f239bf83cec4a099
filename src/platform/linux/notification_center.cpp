// SPDX-License-Identifier: Apache-2.0
// Posts signals over one connection to the system bus, reopened after a fork or a restart of the
// bus. A bus that does not respond delays a post by one second at most.
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

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

class BusConnection {
 public:
  enum Outcome : int { sent = 0, queued = 1 };  // a negative number is a failure

  explicit BusConnection(BusConnection* inherited) noexcept;
  ~BusConnection() { drop(); }
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  int open() noexcept;
  int post(const char* name, Clock::time_point end) noexcept;

  std::mutex mutex;

 private:
  bool isOurs() const noexcept;
  int process() noexcept;
  bool isAlive() noexcept;
  int flush(Clock::time_point end) noexcept;
  void drop() noexcept;

  sd_bus* bus_ = nullptr;
  int descriptor_ = -1;
  struct stat socket_ = {};
  bool mayWait_ = true;
};

/// A forked child closes its copy of the descriptor: sd-bus does not use the connection there, and
/// the parent keeps its own.
BusConnection::BusConnection(BusConnection* inherited) noexcept {
  if (inherited == nullptr || !inherited->mutex.try_lock()) return;
  if (inherited->isOurs()) ::close(inherited->descriptor_);
  inherited->mutex.unlock();
}

/// False when the host closed the descriptor: another file may have its number now.
bool BusConnection::isOurs() const noexcept {
  struct stat now;
  return ::fstat(descriptor_, &now) == 0 && now.st_dev == socket_.st_dev &&
         now.st_ino == socket_.st_ino;
}

void BusConnection::drop() noexcept {
  // A broken connection has closed its descriptor. Otherwise, if the number is not ours any more,
  // leak the object: freeing it would close someone else's file.
  if (bus_ != nullptr && (sd_bus_get_fd(bus_) == -ENOTCONN || isOurs())) sd_bus_unref(bus_);
  bus_ = nullptr;
}

/// Reads and writes what it can without blocking.
int BusConnection::process() noexcept {
  const int result = sd_bus_process(bus_, nullptr);
  if (result > 0) mayWait_ = true;
  return result;
}

/// Discards incoming messages, which also shows whether the bus is gone.
bool BusConnection::isAlive() noexcept {
  if (bus_ == nullptr || !isOurs()) return false;
  int result = 1;
  for (int taken = 0; result > 0 && taken < kMostIncoming; ++taken) result = process();
  return result >= 0 && sd_bus_is_open(bus_) > 0;
}

/// Connects unless a connection is alive; the bus need not have answered yet.
int BusConnection::open() noexcept {
  if (isAlive()) return 0;
  drop();
  if (const int result = sd_bus_open_system(&bus_); result < 0) return result;
  mayWait_ = true;
  descriptor_ = sd_bus_get_fd(bus_);
  return ::fstat(descriptor_, &socket_) == 0 ? 0 : -errno;
}

/// Waits until the queue is empty. After a timeout no post waits again until the bus responds; what
/// is queued goes out with a later post, or never.
int BusConnection::flush(Clock::time_point end) noexcept {
  for (;;) {
    // Checked first: a broken connection has dropped its queue.
    if (sd_bus_is_open(bus_) <= 0) return -ECONNRESET;
    std::uint64_t waiting = 0;
    sd_bus_get_n_queued_write(bus_, &waiting);
    if (waiting == 0) return sent;
    int result = process();
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now());
    if (result >= 0 && (!mayWait_ || left.count() <= 0)) {
      mayWait_ = false;
      return queued;
    }
    if (result == 0) result = sd_bus_wait(bus_, static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) return result;
  }
}

int BusConnection::post(const char* name, Clock::time_point end) noexcept {
  int result = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    result = open();
    if (result < 0) return result;
    result = sd_bus_emit_signal(bus_, kPath, kInterface, kSignal, "s", name);
    // The bus refused the name and would refuse it again.
    if (result < 0 && sd_bus_is_open(bus_) > 0) return result;
    if (result >= 0) result = flush(end);
    if (result >= 0) return result;
    drop();
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
  // Includes the wait for another thread's post.
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
