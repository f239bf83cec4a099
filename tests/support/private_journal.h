// SPDX-License-Identifier: Apache-2.0
// A real journal for one test, which leaves the machine's own alone.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/json_serialization.h"

namespace larkspur::test {

/// The fields of one entry, empty where it has none.
struct JournalEntry {
  std::string operator[](const std::string& field) const {
    return std::string(fields.stringForKey(field).value_or(""));
  }
  JSONObject fields;
};

/// What the journal was sent in its own protocol so far, oldest first.
std::vector<JournalEntry> journalEntries();

/// Runs `body` in a child process and mount namespace of its own with a fresh journal. What fails
/// in `body` fails the test; where that is not possible it skips the test and says why.
/// `journalEntries` is good inside `body` only.
void withPrivateJournal(const std::function<void()>& body);

}  // namespace larkspur::test
