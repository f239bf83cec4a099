// SPDX-License-Identifier: Apache-2.0
// Runs an operation in another program under strace, which can make any of its system calls fail or
// kill it there.
#pragma once

#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "sweeps/sweep_fixture.h"

namespace larkspur::test {

class TracedTest : public SweepTest {
 protected:
  void SetUp() override {
    SweepTest::SetUp();
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers do not run under ptrace";
#endif
    if (std::system("strace -o /dev/null true") != 0) GTEST_SKIP() << "strace cannot run here";
  }

  struct Run {
    int status;         ///< As of `waitpid`.
    std::string said;   ///< By the program.
    std::string calls;  ///< As traced, from the program's start on, a line each.
  };
  /// Prepares the operation and runs it with these strace options.
  Run run(const Operation& operation, const std::string& options = "") {
    prepare(operation);
    const std::string place = directory(), archive = place + "/config.zip";
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string command = "cd " + place + "; exec strace -o trace " + always + options + " " +
                                program.string() + "/larkspur_sweep_program " + root().string() +
                                (operation.name == "Delete" ? " v1" : " v2 " + archive) +
                                " >said </dev/null";
    const int status = std::system(command.c_str());
    return {status, contents("said"), contents("trace")};
  }

  std::string always;  ///< Further options, with a blank behind.

  /// Calls `body` with the scratch area on another mount than the root, so that trees are copied.
  void acrossMounts(const std::function<void()>& body) {
    std::filesystem::create_directory(scratchArea = "/dev/shm" / directory().filename());
    ::setenv("HOME", scratchArea.c_str(), 1);
    ::setenv("TMPDIR", scratchArea.c_str(), 1);
    const bool isOtherMount = run(kUpdate).calls.find("EXDEV") != std::string::npos;
    if (isOtherMount) body();
    std::filesystem::remove_all(scratchArea);
    if (!isOtherMount) GTEST_SKIP() << "/dev/shm is no mount of its own here";
  }

  /// Runs the operation once for each of its system calls, breaks that call, and passes the way and
  /// the result to `check`. Skips calls that only affect the process, calls that strace does not
  /// know, and the output of the program itself.
  template <typename Check>
  void breakEachCall(const Operation& operation, const std::vector<std::string>& ways,
                     Check check) {
    static const std::regex kNone(
        R"((\W|syscall_|mmap|munmap|mprotect|brk|futex|rt_|getpid|prlimit|exit).*|.*\(1, .*)");
    std::vector<std::pair<std::string, int>>
        points;  // The call and its number among those of the same name.
    std::map<std::string, int> counts;
    std::istringstream calls(run(operation).calls);
    bool begun = false;
    for (std::string call; std::getline(calls, call);) {
      if (call.find("the operation ends") != call.npos) break;
      const std::string name = call.substr(0, call.find('('));
      const int number = ++counts[name];
      if (begun && !std::regex_match(call, kNone)) points.emplace_back(name, number);
      begun = begun || call.find("the operation begins") != call.npos;
    }
    constexpr std::size_t kPlainPoints = 30;
    const std::size_t step = kEveryPoint ? 1 : points.size() / kPlainPoints + 1;
    int broken = 0;
    for (std::size_t round = 0; round < (kEveryPoint ? ways.size() : 1); ++round) {
      for (std::size_t i = 0; i < points.size(); i += step, ++broken) {
        const auto& [call, number] = points[i];
        const auto way =
            call + ways[(i / step + round) % ways.size()] + ":when=" + std::to_string(number);
        SCOPED_TRACE(way);
        check(way, run(operation, "-e inject=" + way));
        expectClosed();
        expectConsistentAndRepairable();
      }
    }
    EXPECT_GE(broken, 15);
    RecordProperty("broken", broken);
    allowScratchDirectories(scratchDirectories());
  }

 private:
  std::string contents(const char* name) const {
    std::ifstream file(directory() / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

}  // namespace larkspur::test
