// SPDX-License-Identifier: Apache-2.0
// Costs that depend on the host, and the memory that the library needs.
#include <malloc.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "comparison.h"
#include "fixtures.h"
#include "measurements.h"
#include "raw_tree.h"
#include "report.h"

namespace larkspur::bench {
namespace {

/// A process that holds memory and runs an action on request.
class Host {
 public:
  Host(std::size_t bytes, const std::function<void()>& run) {
    int ends[2];
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    socket_ = ends[0];
    process_ = ::fork();
    require(process_ >= 0, "fork");
    if (process_ == 0) {
      hold(bytes);
      char told = 0;
      while (::write(ends[1], &told, 1) == 1 && ::recv(ends[1], &told, 1, 0) == 1) run();
      ::_exit(EXIT_SUCCESS);
    }
    ::close(ends[1]);
    wait();
  }
  ~Host() {
    ::shutdown(socket_, SHUT_RDWR);
    ::close(socket_);
    ::waitpid(process_, nullptr, 0);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void run() const {
    require(::send(socket_, "", 1, MSG_NOSIGNAL) == 1, "the exchange with the host process");
    wait();
  }

 private:
  // In small pages, like a growing heap.
  static void hold(std::size_t bytes) {
    if (bytes == 0) return;
    void* const start =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(start != MAP_FAILED && ::madvise(start, bytes, MADV_NOHUGEPAGE) == 0, "mmap");
    for (std::size_t at = 0; at < bytes; at += 4096) static_cast<char*>(start)[at] = 1;
  }
  void wait() const {
    char done = 0;
    require(::recv(socket_, &done, 1, 0) == 1, "the exchange with the host process");
  }

  int socket_ = -1;
  pid_t process_ = -1;
};

double statusInMiB(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field + ':')) return std::stod(line.substr(field.size() + 1)) / 1024;
  }
  throw std::runtime_error("no " + field);
}

double peakAboveIdle(const std::function<void()>& run) {
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
  const double idle = statusInMiB("VmRSS");
  run();
  return statusInMiB("VmHWM") - idle;
}

void memory() {
  auto framework = quietFramework(Area::current().root(10));
  install(*framework, Area::current().delivery("tiny"));
  const Delivery many = Area::current().delivery("many");
  const double installing = peakAboveIdle([&] { install(*framework, many); });

  framework = quietFramework(Area::current().root(10000));
  const double looking = peakAboveIdle([&] { framework->getDeclarationVersionKeys(); });

  Report& report = Report::current();
  report.add("memory above idle, install *many*", {installing, installing, installing}, 8, " MiB");
  report.add("memory above idle, all keys of 10000 services", {looking, looking, looking}, 16,
             " MiB");
}

void holdingMemory() {
  compare(
      "host/4GiB", 301,
      [] {
        std::shared_ptr<LarkspurFramework> framework = quietFramework(Area::current().root(10));
        const Delivery delivery = Area::current().delivery("tiny");
        const auto run = [=] { install(*framework, delivery); };
        const auto small = std::make_shared<Host>(0, run);
        const auto large = std::make_shared<Host>(std::size_t{4} << 30, run);
        return std::vector<Contender>{{"holding 4 GiB", [=] { large->run(); }},
                                      {"holding nothing", [=] { small->run(); }}};
      },
      [](const Comparison& done) {
        Report::current().add("install *tiny* in a host holding 4 GiB against 0",
                              done.ratio("holding 4 GiB", "holding nothing"), 1.15);
      });
}

void realBusAndJournal() {
  compare(
      "host/bus and journal", 301,
      [] {
        const std::string root = Area::current().root(10);
        std::shared_ptr<LarkspurFramework> quiet = quietFramework(root);
        useSystemServices();
        std::shared_ptr<LarkspurFramework> real = LarkspurFramework::createFramework(root);
        if (!real->isDarwinNotifCenterSuccess()) throw std::runtime_error("no system bus");
        if (::access("/run/systemd/journal/socket", F_OK) != 0) {
          throw std::runtime_error("no journal");
        }
        const Delivery delivery = Area::current().delivery("small");
        return std::vector<Contender>{
            {"bus and journal", [=] { install(*real, delivery); }, useSystemServices},
            {"sinks", [=] { install(*quiet, delivery); }, useSinks}};
      },
      [](const Comparison& done) {
        const Spread price = done.difference("bus and journal", "sinks");
        Report::current().add("price of the real bus and journal on *small*",
                              {price.lower * 1e3, price.median * 1e3, price.upper * 1e3}, 1, " ms");
      });
}

std::vector<Contender> memoryAlone() { return {{"memory", memory}}; }

}  // namespace

// Runs first, while the heap is small.
void registerMemory() {
  compare("memory", 1, memoryAlone, [](const Comparison&) {});
}

void registerHosts() {
  holdingMemory();
  realBusAndJournal();
}

}  // namespace larkspur::bench
