// SPDX-License-Identifier: Apache-2.0
// A framework on a temporary root with recorded signals; everything else is real.
#pragma once

#include <larkspur/larkspur.h>

#include "support/archives.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace larkspur::test {

/// Splits a table: one row per line, cells separated by " | ", the last of `columns` taking the
/// rest of the line.
std::vector<std::vector<std::string>> table(std::size_t columns, const std::string& text);

/// Whether the whole text matches the pattern; a failure shows the text.
::testing::AssertionResult matches(const std::string& text, const std::string& pattern);

/// The outcome of a call: "done", the error's message, or the number of a system error.
std::string outcome(const std::function<void()>& call);

class RecordedTest : public LarkspurTest {
 protected:
  static constexpr char kEverything[] = "";
  /// Errors, posts and events, without what every scan logs about "._saved".
  static constexpr char kSignals[] = R"(^(post|send|error (?!GetP.*\._saved )))";

  /// The outcome of a call and the recorded lines that match, each after " | ". Line breaks become
  /// " | " too, the test's directory "$", a scratch directory "$scratch".
  std::string report(const std::function<void()>& call, const char* pattern = kSignals);

  std::shared_ptr<Recorder> recorder = recordSignals();
};

/// Makes the protected steps public.
struct OpenFramework : LarkspurFramework {
  using LarkspurFramework::addOrUpdateService, LarkspurFramework::checkUpdateScenario,
      LarkspurFramework::deleteSavedDirectory, LarkspurFramework::removeServiceDirectory,
      LarkspurFramework::saveServiceCopy;
};

class StoreTest : public RecordedTest {
 protected:
  StoreTest();

  /// Installs an archive for the declaration "identifier"; by default one whose only file contains
  /// `version`.
  void install(const std::string& version, bool force = false, const std::string& type = kType,
               const std::string& contentType = "application/zip",
               std::optional<FileURL> offered = {});
  FileURL archive(const std::string& content) {
    return writeFile(directory() / "config.zip", zipBytes({{"settings", content}}));
  }
  /// Creates a directory under the root with exactly this record.
  void manage(const std::string& type, const std::string& record);
  /// The versions of tree, record and saved copy of the service: "v1 v2 -". "-" means missing, "?"
  /// another version.
  std::string state();
  /// For each row of "call, which time, number, new scratch directories, state, report" runs the
  /// operation on a service with "v1" installed, and makes that call fail.
  void expectFailures(const std::string& rows, const std::function<void()>& operation);

  static constexpr char kType[] = "com.example.vpn";
  std::unique_ptr<OpenFramework> framework;
};

}  // namespace larkspur::test
