// SPDX-License-Identifier: Apache-2.0
// How the tool is called, and how its output decides.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

// Runs a shell script instead of the tool, and records the call.
struct ScriptedLauncher : ForwardingTaskLauncher {
  using ForwardingTaskLauncher::ForwardingTaskLauncher;
  std::unique_ptr<Task> launch(const FileURL& tool, const std::vector<std::string>& with,
                               const FileURL& writable) override {
    asked = writable.path() + " " + tool.path() + " " + logText(with);
    return ForwardingTaskLauncher::launch(FileURL("/bin/sh"), {"-c", script}, writable);
  }
  static inline std::string asked, script;
};

TEST_F(RecordedTest, ErrorOutputDecides) {
  std::string calls;
  wrap<ScriptedLauncher>(&Platform::taskLauncher, [&](const char* call) { calls += call; });
  for (const auto& row : table(2, R"(
exit 3 | done
printf 'a\377' | done | debug Utilities: unzip configuration file cmdline output: a�
printf ' ' >&2 | Failed unzip of managed configuration file | error Utilities: unzip configuration file from cmdline failed with error:
printf b; printf '\377\376c' >&2 | Failed unzip of managed configuration file | debug Utilities: unzip configuration file cmdline output: b | error Utilities: unzip configuration file from cmdline failed with error: ��c)")) {
    ScriptedLauncher::script = row[0];
    calls.clear();
    EXPECT_EQ(
        report([&] { Utilities().unzipArchive(FileURL("-a b.zip"), FileURL(root())); }, "cmdline"),
        row[1]);
    EXPECT_EQ(calls, "launchreadStandardOutputToEndreadStandardErrorToEnd");
  }
  EXPECT_TRUE(
      matches(ScriptedLauncher::asked,
              R"((.*/tmp/larkspur-\w+) /usr/bin/unzip \["-o", "/.*/-a b.zip", "-d", "\1"\])"));
  allowScratchDirectories(2);
}

}  // namespace larkspur::test
