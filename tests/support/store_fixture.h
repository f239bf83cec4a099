// SPDX-License-Identifier: Apache-2.0
// A framework on a root of its own whose signals are recorded; everything else is real.
#pragma once

#include <larkspur/larkspur.h>

#include "support/archives.h"
#include "support/platform_scope.h"
#include "support/temporary_root.h"

namespace larkspur::test {

/// The cells of a table in text form: a row per line, " | " between two cells, the last of
/// `columns` taking the rest of the line.
std::vector<std::vector<std::string>> table(std::size_t columns, const std::string& text);

/// Whether the whole text matches the pattern, and its reverse as a failure that says the text.
::testing::AssertionResult matches(const std::string& text, const std::string& pattern);

/// What came of a call: "done", the error's message, or the number of a system error.
std::string outcome(const std::function<void()>& call);

class RecordedTest : public LarkspurTest {
 protected:
  static constexpr char kEverything[] = "";
  /// Errors, posts and events, without what every scan says of the area of saved copies.
  static constexpr char kSignals[] = R"(^(post|send|error (?!GetP.*\._saved )))";

  /// What came of a call, and the lines recorded meanwhile that match, " | " in front of each and
  /// in the place of a line break. The test's directory is written "$", a scratch directory
  /// "$scratch".
  std::string report(const std::function<void()>& call, const char* pattern = kSignals);

  std::shared_ptr<Recorder> recorder = recordSignals();
};

/// Reaches the steps that are no client operations.
struct OpenFramework : LarkspurFramework {
  using LarkspurFramework::addOrUpdateService, LarkspurFramework::checkUpdateScenario,
      LarkspurFramework::deleteSavedDirectory, LarkspurFramework::removeServiceDirectory,
      LarkspurFramework::saveServiceCopy;
};

class StoreTest : public RecordedTest {
 protected:
  StoreTest();

  /// Installs an archive, if none is given one whose only file says `version`, for the
  /// declaration "identifier".
  void install(const std::string& version, bool force = false, const std::string& type = kType,
               const std::string& contentType = "application/zip",
               std::optional<FileURL> offered = {});
  FileURL archive(const std::string& content) {
    return writeFile(directory() / "config.zip", zipBytes({{"settings", content}}));
  }
  /// Makes a directory under the root with exactly this record.
  void manage(const std::string& type, const std::string& record);
  /// The versions that tree, record and saved copy of the service are of: "v1 v2 -". "-" stands
  /// for nothing there, "?" for neither version.
  std::string state();
  /// For each row of "call, which time, number, new scratch directories, state, report" runs the
  /// operation with that call failing, on a service that "v1" was installed for.
  void expectFailures(const std::string& rows, const std::function<void()>& operation);

  static constexpr char kType[] = "com.example.vpn";
  std::unique_ptr<OpenFramework> framework;
};

}  // namespace larkspur::test
