// SPDX-License-Identifier: Apache-2.0
// A real message bus for the test process.
#include "support/private_bus.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace larkspur::test {
namespace {

// The rules of a stock system bus for unnamed connections: broadcast, and talk to the bus.
constexpr const char* kPolicy = R"(</listen><auth>EXTERNAL</auth><policy context="default">
  <allow user="*"/><deny own="*"/><deny send_type="method_call"/><allow send_type="signal"/>
  <allow send_requested_reply="true" send_type="method_return"/>
  <allow send_requested_reply="true" send_type="error"/><allow receive_type="signal"/>
  <allow receive_type="method_return"/><allow receive_type="error"/>
  <allow send_destination="org.freedesktop.DBus"/></policy>)";

int addName(sd_bus_message* message, void* names, sd_bus_error*) {
  const char* name = nullptr;
  if (sd_bus_message_read(message, "s", &name) > 0)
    static_cast<std::vector<std::string>*>(names)->emplace_back(name);
  return 0;
}

}  // namespace

// Never destroyed: a child that exits must not stop its parent's bus.
PrivateBus& PrivateBus::shared() {
  static PrivateBus& bus = *new PrivateBus;
  return bus;
}

PrivateBus::PrivateBus() : address_("unix:abstract=larkspur-test-" + std::to_string(::getpid())) {
  restart();
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

void PrivateBus::restart(const std::string& policy) {
  stop();
  const std::string text = "<busconfig><listen>" + address_ + kPolicy + policy + "</busconfig>";
  const int file = ::memfd_create("bus.conf", 0);
  int ready[2];
  if (::write(file, text.data(), text.size()) < 0 || ::pipe(ready) != 0 || (daemon_ = ::fork()) < 0)
    throw std::runtime_error("no bus for the test");
  if (daemon_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string configuration = "--config-file=/dev/fd/" + std::to_string(file);
    const std::string print = "--print-address=" + std::to_string(ready[1]);
    ::execlp("dbus-daemon", "dbus-daemon", configuration.c_str(), "--nofork", "--nopidfile",
             print.c_str(), nullptr);
    ::_exit(127);
  }
  ::close(file);
  ::close(ready[1]);
  char printed = 0;
  const auto length = ::read(ready[0], &printed, 1);
  ::close(ready[0]);
  if (length != 1) throw std::runtime_error("dbus-daemon does not start");
}

void PrivateBus::stop() {
  if (daemon_ <= 0) return;
  ::kill(daemon_, SIGKILL);
  ::waitpid(std::exchange(daemon_, 0), nullptr, 0);
}

void PrivateBus::freeze() { ::kill(daemon_, SIGSTOP); }
void PrivateBus::thaw() { ::kill(daemon_, SIGCONT); }

BusListener::BusListener() : bus_(nullptr, sd_bus_close_unref) {
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  bus_.reset(bus);
  if (sd_bus_set_address(bus, PrivateBus::shared().address().c_str()) < 0 ||
      sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0 ||
      sd_bus_match_signal(bus, nullptr, nullptr, "/com/corvid/Larkspur1", "com.corvid.Larkspur1",
                          "Changed", addName, &names_) < 0)
    throw std::runtime_error("no listener on the bus");
}

std::vector<std::string> BusListener::received(std::size_t count, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (names_.size() < count && std::chrono::steady_clock::now() < end) {
    if (sd_bus_process(bus_.get(), nullptr) == 0) sd_bus_wait(bus_.get(), 10'000);
  }
  return std::exchange(names_, {});
}

}  // namespace larkspur::test
