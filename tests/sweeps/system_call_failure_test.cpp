// SPDX-License-Identifier: Apache-2.0
// Each system call of an operation fails once; fallbacks where the first call is refused; and a new
// tree is flushed before it is put in place.
#include "sweeps/traced_program.h"

namespace larkspur::test {
namespace {

class SystemCallFailureTest : public TracedTest, public ::testing::WithParamInterface<Operation> {
 protected:
  void failEachCall();
};

void SystemCallFailureTest::failEachCall() {
  static constexpr char kOutcomes[] =
      "(post .*\n)*(done|Internal Error|Failed unzip of managed configuration file|"
      "Fatal: this shouldn't happen|Managed service not found for v1|\\w+ \".*)\n";
  static const std::regex kSkipped("(openat|getdents64):error=(ENOSPC|EIO|EACCES):.*");
  const bool deletes = GetParam().name == "Delete";
  const auto check = [&](const std::string& way, const Run& end) {
    const std::string now = state();
    const bool isDone = end.said.ends_with("done\n"), isPosted = end.said.find("vpn\n") != now.npos;
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(matches(end.said, kOutcomes));
    EXPECT_EQ(isPosted, deletes ? now[0] == '-' : isDone || now.starts_with("v2"));
    EXPECT_LE(scratchDirectories(), 1);
    // The pass that sets the modes skips what it cannot read, but not when out of resources.
    if (isDone && std::regex_match(way, kSkipped) && now.find("other") != now.npos) {
      EXPECT_TRUE(matches(now, "(other|v2) v2 (other|v2)"));
    } else {
      EXPECT_TRUE(!isDone || deletes || now == "v2 v2 v2") << now;
      expectOldOrNew(GetParam());
    }
  };
  breakEachCall(GetParam(),
                {":error=ENOSPC", ":error=EIO", ":error=EACCES", ":error=EMFILE", ":error=ENOMEM"},
                check);
}

TEST_P(SystemCallFailureTest, LeavesOldOrNew) { failEachCall(); }
TEST_P(SystemCallFailureTest, LeavesOldOrNewAcrossMounts) {
  acrossMounts([this] { failEachCall(); });
}
INSTANTIATE_TEST_SUITE_P(Each, SystemCallFailureTest,
                         ::testing::Values(kNew, kUpdate, kRename, kDelete));

using FallbackTest = TracedTest;

// The injected failure, the resulting state, how many scratch directories stay, and the expected
// call.
TEST_F(FallbackTest, UsesTheFallback) {
  for (const auto& row : table(4, R"(
renameat2:error=EINVAL | v2 v2 v2 | 0 | (renameat\([^\n]*\n){2}
renameat2:error=ENOSYS | v2 v2 v2 | 0 | (renameat\([^\n]*\n){2}
renameat2:error=EINVAL -e inject=renameat:error=EIO:when=3 | - - v1 | 1 | (renameat\([^\n]*\n){3}
renameat2:error=EINVAL -e inject=renameat:error=EIO:when=3+ | - - v1 | 0 | (renameat\([^\n]*\n){3}
renameat2:error=EINVAL -e inject=renameat:error=EIO:when=2 | - - v1 | 1 | renameat\([^\n]*INJ
renameat2:error=EXDEV | - - v1 | 1 | renameat2[^\n]*INJ
flock:error=EIO:when=1 | - - v1 | 1 | flock[^\n]*INJ
mkdirat:error=EEXIST:when=2 | v2 v2 v2 | 0 | mkdirat[^\n]*INJ
mkdirat:error=EROFS:when=2 | - - v1 | 1 | mkdirat[^\n]*INJ
mkdirat:error=EEXIST | v1 v1 v1 | 0 | mkdirat[^\n]*INJ
mkdirat:error=ENOSPC:when=2+ | - - v1 | 1 | fremovexattr
getdents64,syncfs,poll,waitid:error=EINTR:when=1 | v2 v2 v2 | 0 | INJ
renameat:error=EXDEV:when=1 | v2 v2 v2 | 0 | renameat2\([^\n]*/root/\.larkspur-\w+/[^\n]*RENAME_EXCHANGE\) = 0
copy_file_range:error=EXDEV | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=EINVAL | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=ENOSYS | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=EOPNOTSUPP | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=EBADF | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=EPERM | v2 v2 v2 | 0 | write\([^\n]*= 65536
copy_file_range:error=ETXTBSY | v2 v2 v2 | 0 | write\([^\n]*= 65536
statx:error=EIO | v2 v2 v1 | 0 | statx[^\n]*INJ
clone,clone3,vfork:error=EAGAIN | - - v1 | 1 | INJECTED
pidfd_open:error=ENOSYS | v2 v2 v2 | 0 | waitid\(P_PID,
)")) {
    SCOPED_TRACE(row[0]);
    const Run end = run(kUpdate, "-e inject=" + row[0]);
    EXPECT_EQ(state(), row[1]);
    EXPECT_EQ(end.said.ends_with("done\n"), row[1] == "v2 v2 v2");
    EXPECT_EQ(std::to_string(scratchDirectories()), row[2]);
    EXPECT_TRUE(std::regex_search(end.calls, std::regex(row[3])));
    expectConsistentAndRepairable();
  }
  allowScratchDirectories(scratchDirectories());
}

// The file system of the tree, after the last change to the tree, and only once.
TEST_F(FallbackTest, FlushesANewTreeBeforeTheExchange) {
  static const std::regex kFlushAndExchange(
      R"(\nsyncfs\(\d+<(.*)>\) += 0\n((close|newfstatat|---).*\n)*renameat2\(.*, "\1", .*$)");
  std::string calls = run(kUpdate, "-y").calls;
  calls.resize(calls.find("RENAME_EXCHANGE) = 0"));
  EXPECT_TRUE(std::regex_search(calls, kFlushAndExchange)) << calls;
  EXPECT_EQ(calls.find("syncfs("), calls.rfind("syncfs("));
}

}  // namespace
}  // namespace larkspur::test
