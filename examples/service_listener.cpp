// SPDX-License-Identifier: Apache-2.0
// A service that follows its configuration: it waits for the change signal of one service type and
// reads tree and record again, safely while they may be replaced.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    R"(usage: service_listener [--changes N] [--seconds N] ROOT SERVICE_TYPE

  --changes N   end after N changes
  --seconds N   end after N seconds
)";

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return number_ >= 0; }
  int number() const { return number_; }

 private:
  int number_;
};

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

std::set<std::string> entries(int directory) {
  // A second descriptor, because closedir closes the one it gets.
  const int duplicate = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (duplicate < 0) fail(errno, "cannot open a directory");
  const std::unique_ptr<DIR, CloseDirectory> stream(fdopendir(duplicate));
  if (!stream) {
    const int error = errno;
    close(duplicate);
    fail(error, "cannot read a directory");
  }
  std::set<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) names.insert(entry->d_name);
  if (errno != 0) fail(errno, "cannot read a directory");
  names.erase(".");
  names.erase("..");
  return names;
}

// Adds a line for everything below `directory`. Opens everything relative to its parent directory,
// so that all lines describe the same tree.
void describe(int directory, const std::string& prefix, std::string& lines) {
  for (const std::string& name : entries(directory)) {
    const Descriptor item(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!item.isOpen() || fstat(item.number(), &status) != 0) fail(errno, prefix + name);
    std::array<char, 16> mode{};
    std::snprintf(mode.data(), mode.size(), "  %04o ", status.st_mode & 07777U);
    lines.append(mode.data()).append(prefix).append(name);
    if (S_ISDIR(status.st_mode)) {
      lines += "/\n";
      describe(item.number(), prefix + name + "/", lines);
    } else {
      // A service would read() its settings from `item` here.
      lines += " (" + std::to_string(status.st_size) + " bytes)\n";
    }
  }
}

// The record is written just after the signal is sent, so it may be missing for a moment.
std::string record(int directory) {
  const auto deadline = Clock::now() + std::chrono::seconds(1);
  std::vector<char> value(XATTR_SIZE_MAX);
  for (;;) {
    const ssize_t length = fgetxattr(directory, "user.Larkspur", value.data(), value.size());
    if (length >= 0) return {value.data(), static_cast<std::size_t>(length)};
    if (errno != ENODATA) fail(errno, "cannot read the record");
    if (Clock::now() > deadline) return "none";
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

bool isStillAt(const std::string& path, int directory) {
  struct stat now = {};
  struct stat opened = {};
  return fstat(directory, &opened) == 0 && stat(path.c_str(), &now) == 0 &&
         now.st_dev == opened.st_dev && now.st_ino == opened.st_ino;
}

// Reads the tree once; nullopt if it changed meanwhile. A replaced tree may be removed while it is
// read, so the result counts only if its directory is still in place at the end.
std::optional<std::string> tryToRead(const std::string& path) {
  const Descriptor top(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!top.isOpen()) {
    if (errno == ENOENT) return "  no tree\n";
    fail(errno, path);
  }
  std::string lines;
  try {
    describe(top.number(), "", lines);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
  lines += "  record " + record(top.number()) + "\n";
  if (!isStillAt(path, top.number())) return std::nullopt;
  return lines;
}

std::string read(const std::string& path) {
  constexpr int kAttempts = 10;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (const auto lines = tryToRead(path)) return *lines;
  }
  return "  still changing\n";  // Another signal will follow.
}

int countChange(sd_bus_message*, void* changes, sd_bus_error*) {
  ++*static_cast<int*>(changes);
  return 0;
}

// Returns once the bus has confirmed the subscription, so nothing that happens later is missed.
Bus subscribe(const std::string& serviceType, int& changes) {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  if (result < 0) fail(-result, "cannot connect to the system bus");
  Bus bus(opened);
  const std::string match =
      "type='signal',path='/com/corvid/Larkspur1',interface='com.corvid.Larkspur1',"
      "member='Changed',arg0='kLarkspurChanged_" +
      serviceType + "'";
  result = sd_bus_add_match(bus.get(), nullptr, match.c_str(), countChange, &changes);
  if (result < 0) fail(-result, "cannot subscribe");
  return bus;
}

// Runs until `changes` has grown or the deadline has passed.
void waitForChange(sd_bus* bus, const int& changes, Clock::time_point deadline) {
  const int before = changes;
  while (changes == before) {
    int result = sd_bus_process(bus, nullptr);
    if (result < 0) fail(-result, "lost the system bus");  // Let the service manager restart it.
    if (result > 0) continue;
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
    if (left.count() <= 0) return;
    result = sd_bus_wait(bus, static_cast<std::uint64_t>(left.count()));
    if (result < 0 && result != -EINTR) fail(-result, "lost the system bus");
  }
}

void follow(const std::string& root, const std::string& serviceType, int limit, int seconds) {
  const std::string path = root + "/" + serviceType;
  const auto deadline = Clock::now() + std::chrono::seconds(seconds);
  int changes = 0;
  // Subscribes before it reads: otherwise a change between the two is lost.
  const Bus bus = subscribe(serviceType, changes);
  std::cout << "listening for " << serviceType << '\n' << read(path) << std::flush;
  while (changes < limit) {
    const int before = changes;
    waitForChange(bus.get(), changes, deadline);
    if (changes == before) return;
    // The signal only announces a change; read the tree for the result.
    const std::string lines = read(path);
    std::cout << "change " << changes << " of " << serviceType << '\n' << lines << std::flush;
  }
}

}  // namespace

int main(int argc, char** argv) {
  int changes = INT_MAX;
  int seconds = 365 * 24 * 3600;
  std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    while (arguments.size() > 2 && arguments[0].starts_with("--")) {
      if (arguments[0] == "--changes") changes = std::stoi(arguments[1]);
      if (arguments[0] == "--seconds") seconds = std::stoi(arguments[1]);
      arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    if (arguments.size() != 2 || arguments[1].find_first_of("/'") != std::string::npos) {
      std::cerr << kUsage;
      return 2;
    }
    follow(arguments[0], arguments[1], changes, seconds);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "service_listener: " << error.what() << '\n';
    return 1;
  }
}
