// SPDX-License-Identifier: Apache-2.0
// How a C++ operation ends in C: every way out becomes a code, and what the call logged becomes
// its detail.
#pragma once

#include <exception>
#include <string_view>

#include <larkspur/larkspur_c.h>

namespace larkspur::c {

/// Thrown by a check of this interface; the two literals are one sentence.
struct Refusal {
  int code;
  const char* subject;
  const char* complaint;
};

/// Refuses an argument unless it is good.
inline void require(bool isGood, const char* subject, const char* complaint) {
  if (!isGood) throw Refusal{LARKSPUR_BAD_ARGUMENT, subject, complaint};
}

/// Collects the error lines of the thread's call in the caller's struct while it exists.
class DetailCollector {
 public:
  explicit DetailCollector(larkspur_error* error) noexcept;
  ~DetailCollector();
  DetailCollector(const DetailCollector&) = delete;
  DetailCollector& operator=(const DetailCollector&) = delete;

  /// Whether the thread is in a call whose caller wants to know.
  static bool isCollecting() noexcept;
  /// Adds a line; the oldest lines make room for it.
  static void add(std::string_view line) noexcept;
};

/// Writes the outcome into the caller's struct, if there is one, and returns the code.
int report(larkspur_error* error, int code, int number, std::string_view message,
           std::string_view more = {}) noexcept;

/// The same for the exception in flight.
int reportException(larkspur_error* error) noexcept;

/// Runs one call.
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
