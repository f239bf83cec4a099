// SPDX-License-Identifier: Apache-2.0
// A real journal for one test, which leaves the machine's own alone.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace larkspur::test {

/// What the journal was sent in its own protocol so far, oldest first: field to value.
std::vector<std::map<std::string, std::string>> journalEntries();

/// Runs `body` in a child process and mount namespace of its own with a fresh journal. What fails
/// in `body` fails the test; where that is not possible it skips the test and says why.
/// `journalEntries` is good inside `body` only.
void withPrivateJournal(const std::function<void()>& body);

}  // namespace larkspur::test
