// SPDX-License-Identifier: Apache-2.0
// Turns the outcome of a C++ operation into a return code and the error lines it logged.
#pragma once

#include <string_view>

#include <larkspur/larkspur_c.h>

namespace larkspur::c {

/// Thrown by the checks of this interface; subject and complaint form the message.
struct Refusal {
  int code;
  const char* subject;
  const char* complaint;
};

/// Throws `Refusal` unless `isGood`.
inline void require(bool isGood, const char* subject, const char* complaint) {
  if (!isGood) throw Refusal{LARKSPUR_BAD_ARGUMENT, subject, complaint};
}

/// Collects the error lines of this thread's call in the caller's struct while it exists.
class DetailCollector {
 public:
  explicit DetailCollector(larkspur_error* error) noexcept;
  ~DetailCollector();
  DetailCollector(const DetailCollector&) = delete;
  DetailCollector& operator=(const DetailCollector&) = delete;

  /// Whether the current call has a struct for its error.
  static bool isCollecting() noexcept;
  /// Adds a line and drops the oldest ones if there is no room.
  static void add(std::string_view line) noexcept;
};

/// Writes the outcome into the caller's struct, if there is one, and returns the code.
int report(larkspur_error* error, int code, int number, std::string_view message,
           std::string_view more = {}) noexcept;

/// The same for the current exception.
int reportException(larkspur_error* error) noexcept;

/// Runs `operation` and reports its outcome.
template <typename Operation>
int reported(larkspur_error* error, Operation operation) noexcept {
  const DetailCollector collector(error);
  try {
    operation();
    return report(error, LARKSPUR_OK, 0, "");
  } catch (...) {
    return reportException(error);
  }
}

}  // namespace larkspur::c
