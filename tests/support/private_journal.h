// SPDX-License-Identifier: Apache-2.0
// A real journal for one test, separate from the machine's.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/json_serialization.h"

namespace larkspur::test {

/// The fields of an entry; missing ones are empty.
struct JournalEntry {
  std::string operator[](const std::string& field) const {
    return std::string(fields.stringForKey(field).value_or(""));
  }
  JSONObject fields;
};

/// All entries that reached the journal in its native protocol, oldest first.
std::vector<JournalEntry> journalEntries();

/// Runs `body` in a child process and mount namespace with a new journal. A failure in `body` fails
/// the test; where this is not possible the test is skipped. Call `journalEntries` inside `body`
/// only.
void withPrivateJournal(const std::function<void()>& body);

}  // namespace larkspur::test
