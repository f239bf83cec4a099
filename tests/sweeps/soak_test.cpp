// SPDX-License-Identifier: Apache-2.0
// A long run leaks nothing. LARKSPUR_SOAK_CYCLES sets its length.
#include <malloc.h>

#include <fstream>

#include "support/private_bus.h"
#include "support/store_fixture.h"

namespace larkspur::test {
namespace {

struct Memory {
  long heap, residentKiB;
};

Memory memoryInUse() {
  long total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  const struct mallinfo2 heap = ::mallinfo2();
  return {static_cast<long>(heap.uordblks + heap.hblkhd), resident * 4};
}

TEST_F(LarkspurTest, LongRunLeaksNothing) {
  const char* const wanted = std::getenv("LARKSPUR_SOAK_CYCLES");
  const int cycles = wanted != nullptr ? std::atoi(wanted) : 300, warmUp = cycles / 10;
  PrivateBus::shared();
  const auto framework = LarkspurFramework::createFramework(root());
  startCounting();
  const FileURL archive =
      writeFile(directory() / "x.zip", zipBytes({{"a", "A"}, zipDirectory("b/", 0), {"b/c", "C"}}));
  Memory before = {};
  for (int cycle = 0; cycle < cycles; ++cycle) {
    if (cycle == warmUp) before = memoryInUse();
    framework->installArchive("com.example.soak", archive, "application/zip", "1", "d", "h", false);
    framework->deleteService("1");
  }
  const Memory after = memoryInUse();
  std::printf("%d cycles: heap %+ld bytes, resident %+ld KiB\n", cycles, after.heap - before.heap,
              after.residentKiB - before.residentKiB);
  EXPECT_LE(after.heap, before.heap + 4096);
  EXPECT_EQ(snapshot(root()).size(), 1u) << "more than the area of saved copies";
}

}  // namespace
}  // namespace larkspur::test
