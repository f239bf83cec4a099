// SPDX-License-Identifier: Apache-2.0
// Kills an operation before each of its system calls. It leaves old or new, nothing else is taken
// for a service, and the next install repairs it.
#include <stdlib.h>
#include <sys/wait.h>

#include "sweeps/traced_program.h"

namespace larkspur::test {
namespace {

class KillTest : public TracedTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void killAtEachCall() {
    int killed = 0;
    breakEachCall(GetParam(), {":signal=KILL"}, [&](const std::string&, const Run& end) {
      killed += WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGKILL;
      expectOldOrNew(GetParam());
      EXPECT_TRUE(state()[0] == '-' || state(kOld)[0] == '-');
    });
    // Not every time: how often the program polls for its child varies.
    EXPECT_GE(killed, 12);
  }
};

TEST_P(KillTest, LeavesOldOrNew) { killAtEachCall(); }

TEST_P(KillTest, LeavesOldOrNewWithoutExchange) {
  always = "-e inject=renameat2:error=EINVAL ";
  killAtEachCall();
}

TEST_P(KillTest, LeavesOldOrNewAcrossMounts) {
  acrossMounts([this] { killAtEachCall(); });
}

INSTANTIATE_TEST_SUITE_P(Each, KillTest, ::testing::Values(kNew, kUpdate, kRename, kDelete));

}  // namespace
}  // namespace larkspur::test
