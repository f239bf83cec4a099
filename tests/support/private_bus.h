// SPDX-License-Identifier: Apache-2.0
// A real message bus for the test process, instead of the system bus.
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
  /// The bus of this process, started on first use; sets `DBUS_SYSTEM_BUS_ADDRESS`. It ends with
  /// the process and leaves no file.
  static PrivateBus& shared();

  const std::string& address() const { return address_; }
  /// Breaks every connection; the address stays. `policy` extends that of a stock bus.
  void restart(const std::string& policy = "");
  void stop();    ///< Stops the daemon until `restart`.
  void freeze();  ///< The daemon accepts connections but does not answer.
  void thaw();    ///< The daemon continues.

 private:
  PrivateBus();

  std::string address_;
  pid_t daemon_ = 0;
};

/// Collects the changes announced on the private bus.
class BusListener {
 public:
  BusListener();

  /// Waits until `count` names came in, at most `limit`; returns those received since the last
  /// call.
  std::vector<std::string> received(std::size_t count,
                                    std::chrono::milliseconds limit = std::chrono::seconds(20));

 private:
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus_;
  std::vector<std::string> names_;
};

}  // namespace larkspur::test
