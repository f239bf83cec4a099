// SPDX-License-Identifier: Apache-2.0
// Fills in the caller's error struct without allocating.
#include "c/report.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <system_error>

#include <larkspur/larkspur_error.h>

namespace larkspur::c {
namespace {

constinit thread_local larkspur_error* currentError = nullptr;

// How much of `text` fits into `room` bytes without splitting a character.
std::size_t fittingLength(std::string_view text, std::size_t room) noexcept {
  if (text.size() <= room) return text.size();
  constexpr int kMostContinuationBytes = 3;
  std::size_t length = room;
  for (int back = 0; length > 0 && back < kMostContinuationBytes; ++back, --length)
    if ((static_cast<unsigned char>(text[length]) & 0xC0U) != 0x80U) break;
  return length;
}

// Appends to the first `used` bytes of the buffer and terminates it. A zero byte in the text would
// hide the rest, so it becomes a blank.
template <std::size_t size>
void append(char (&buffer)[size], std::size_t used, std::string_view text) noexcept {
  const std::size_t length = fittingLength(text, size - 1 - used);
  std::replace_copy(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length), buffer + used,
                    '\0', ' ');
  buffer[used + length] = '\0';
}

}  // namespace

DetailCollector::DetailCollector(larkspur_error* error) noexcept {
  if (error != nullptr) error->detail[0] = '\0';
  currentError = error;
}

DetailCollector::~DetailCollector() { currentError = nullptr; }

bool DetailCollector::isCollecting() noexcept { return currentError != nullptr; }

void DetailCollector::add(std::string_view line) noexcept {
  if (currentError == nullptr) return;
  auto& detail = currentError->detail;
  std::size_t used = std::strlen(detail);
  if (used > 0) detail[used++] = '\n';
  // Drops the oldest lines: the one that explains the failure comes last.
  const std::size_t needed = std::min(line.size(), sizeof detail - 1);
  while (used + needed > sizeof detail - 1) {
    const char* rest = std::find(detail, detail + used, '\n') + 1;
    used -= static_cast<std::size_t>(rest - detail);
    std::memmove(detail, rest, used);
  }
  append(detail, used, line);
}

int report(larkspur_error* error, int code, int number, std::string_view message,
           std::string_view more) noexcept {
  if (error != nullptr) {
    error->code = code;
    error->system_errno = number;
    append(error->message, 0, message);
    append(error->message, std::strlen(error->message), more);
  }
  return code;
}

int reportException(larkspur_error* error) noexcept {
  try {
    throw;
  } catch (const Refusal& refusal) {
    return report(error, refusal.code, 0, refusal.subject, refusal.complaint);
  } catch (const LarkspurError& failure) {
    return report(error, failure.code() + 1, 0, failure.what());
  } catch (const std::system_error& failure) {
    return report(error, LARKSPUR_SYSTEM_ERROR, failure.code().value(), failure.what());
  } catch (const std::bad_alloc&) {
    return report(error, LARKSPUR_NO_MEMORY, 0, "out of memory");
  } catch (const std::exception& failure) {
    return report(error, LARKSPUR_UNEXPECTED_ERROR, 0, failure.what());
  } catch (...) {
    return report(error, LARKSPUR_UNEXPECTED_ERROR, 0, "an unknown exception");
  }
}

}  // namespace larkspur::c
