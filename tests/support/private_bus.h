// SPDX-License-Identifier: Apache-2.0
// A real message bus for the test process alone, in the place of the system's.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

struct sd_bus;

namespace larkspur::test {

class PrivateBus {
 public:
  /// The bus of this process, started on first use; `DBUS_SYSTEM_BUS_ADDRESS` leads to it from
  /// then on. It ends with the process, and leaves no file.
  static PrivateBus& shared();

  const std::string& address() const { return address_; }
  /// Every connection breaks; the address stays. `policy` is added to what a stock bus has.
  void restart(const std::string& policy = "");
  void stop();    ///< Nobody listens any more; `restart` brings it back.
  void freeze();  ///< It accepts connections and answers nothing.
  void thaw();    ///< It goes on where it was frozen.

 private:
  PrivateBus();

  std::string address_;
  pid_t daemon_ = 0;
};

/// Hears every change that is announced on the private bus from its construction on.
class BusListener {
 public:
  BusListener();

  /// Waits until `count` names came in, at most `limit`; gives and forgets those heard so far.
  std::vector<std::string> received(std::size_t count,
                                    std::chrono::milliseconds limit = std::chrono::seconds(20));

 private:
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus_;
  std::vector<std::string> names_;
};

}  // namespace larkspur::test
