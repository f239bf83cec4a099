// SPDX-License-Identifier: Apache-2.0
// Every call through the platform's seams fails once in every operation, alone and with all calls
// after it. What must come of it depends on the call and on the step that makes it.
#include "sweeps/sweep_fixture.h"

namespace larkspur::test {
namespace {

constexpr int kCodes[] = {ENOSPC, EIO, EACCES, EMFILE, ENOMEM};

// The calls with which an operation comes from one step to the next.
const std::map<std::string, std::string> kNextStep = {
    {"start contentsOfDirectory", "sweep"},
    {"sweep contentsOfDirectory", "find"},
    {"find existence", "remove"},
    {"remove existence", "forget"},
    {"forget contentsOfDirectory", "count"},
    {"count existence", "own"},
    {"sweep existence", "own"},
    {"own existence", "make"},
    {"make homeDirectoryForCurrentUser", "unpack"},
    {"unpack set", "record"},
    {"record existence", "save"},
    {"save contentsOfDirectory", "report"}};

// The failures that end an operation, by step; all others are answers. Then the outcome, and the
// state of the service that is installed: "=" is its state or its saved copy before, "made" its
// state with the directory made.
const auto kRules = table(4, R"(
sweep find remove count | contentsOfDirectory existence removeItem | Internal Error | =
find | get | Managed service not found for v1 | =
forget | removeItem flush | Internal Error | =
make | existence createDirectory | Internal Error | =
unpack | homeDirectoryForCurrentUser makeItemReplacementDirectory existence replaceItem | Internal Error | - - =
unpack | launch | Failed unzip of managed configuration file | - - =
unpack | readStandardOutputToEnd readStandardErrorToEnd enumerate kind setPosixPermissions | Fatal: this shouldn't happen | made
record | set | Internal Error | v2 - =
save | existence removeItem | Internal Error | v2 v2 =
save | flush | Internal Error | v2 v2 v2
save | createDirectory | Internal Error | v2 v2 -
save | copyItem | Internal Error | v2 v2 empty
save | enumerate kind setPosixPermissions | system error | v2 v2 other
report | contentsOfDirectory | Internal Error | v2 v2 v2
report | fileSize | system error | v2 v2 v2
)");

bool isIn(const std::string& list, const std::string& word) {
  return (" " + list + " ").find(" " + word + " ") != std::string::npos;
}

// Tells whose record is being read.
struct TellingAttributes : ForwardingExtendedAttributes {
  using ForwardingExtendedAttributes::ForwardingExtendedAttributes;
  std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                     std::size_t size) override {
    subject = item.lastPathComponent();
    return ForwardingExtendedAttributes::get(item, name, buffer, size);
  }
  static inline std::string subject;
};

class SeamFailureTest : public SweepTest,
                        public ::testing::WithParamInterface<std::tuple<Operation, bool>> {
 protected:
  // Runs the operation with its `nth` fallible call failing, and with all after it if it `goesOn`;
  // gives the outcome and what was said.
  std::string run(int nth, int code) {
    std::string step = isInstall ? "start" : operation.name == "List" ? "forget" : "sweep";
    int count = 0;
    failed.clear();
    const ScopedPlatform scope;
    hookEverySeam([&](const std::string& call) {
      if (kNextStep.contains(step + " " + call)) step = kNextStep.at(step + " " + call);
      if (++count < nth || (count > nth && !goesOn)) return;
      const bool isOther = call == "get" && TellingAttributes::subject != operation.before;
      failed.push_back(step + (isOther ? " look at another" : " " + call));
      throw std::system_error(code, std::generic_category(), call);
    });
    wrap<TellingAttributes>(&Platform::extendedAttributes);
    return report([&] {
      if (isInstall) install("v2");
      if (operation.name == "Delete") framework->deleteService("v1");
      if (operation.name == "Find") framework->findServiceType("v1");
      if (operation.name == "List") framework->getDeclarationVersionKeys();
    });
  }
  bool hasFailed(const std::string& call) const { return std::ranges::count(failed, call) != 0; }
  void expectEnd(const std::string& said, int code) const;

  const Operation operation = std::get<0>(GetParam());
  const bool goesOn = std::get<1>(GetParam());
  const bool isInstall = isIn("New Update Rename", operation.name);
  const bool isUpdate = operation.name == "Update";
  std::vector<std::string> failed;
};

void SeamFailureTest::expectEnd(const std::string& said, int code) const {
  // Of the first failure that ends the operation.
  std::string step, call, outcome = "done", now = "v2 v2 v2";
  for (std::size_t i = 0; i < failed.size() && step.empty(); ++i) {
    const std::string where = failed[i].substr(0, failed[i].find(' ')),
                      what = failed[i].substr(where.size() + 1);
    // Where nothing is, a failed look answers what a good one would.
    if (!isUpdate && isIn("make save", where) && what == "existence") continue;
    for (const auto& rule : kRules)
      if (isIn(rule[0], where) && isIn(rule[1], what))
        step = where, call = what, outcome = rule[2], now = rule[3];
  }
  const std::string number = std::to_string(code);
  if (outcome == "system error") outcome += " " + number;
  const bool isFresh = isInstall && !isUpdate;
  if (now == "made" || (now == "- - =" && goesOn)) now = isFresh ? "empty - -" : "=";
  if (now == "=" || !isInstall) now = isFresh ? "- - -" : "v1 v1 v1";
  if (now.ends_with('=')) now.replace(now.size() - 1, 1, isUpdate ? "v1" : "-");
  const bool isDeleted = isIn("Delete Rename", operation.name) && !hasFailed("sweep get") &&
                         !isIn("sweep find remove", step);
  const bool keepsCopy =
      (step == "forget" && call == "removeItem") || hasFailed("forget existence");
  const std::string old = !isDeleted ? "v1 v1 v1" : keepsCopy ? "- - v1" : "- - -";

  const auto has = [&](const std::string& text) {
    return (said + " |").find(" | " + text) != said.npos;
  };
  EXPECT_EQ(said.substr(0, said.find(" | ")), outcome);
  EXPECT_EQ(state(), operation.name == "Delete" ? old : now);
  EXPECT_EQ(state(kOld), operation.name == "Rename" ? old : "- - -");
  // No later step ran, and nothing is left but what a tree was unpacked into.
  EXPECT_EQ(has("post kLarkspurChanged_com.example.vpn"), isInstall ? now[1] == '2' : isDeleted);
  EXPECT_EQ(has("post kLarkspurChanged_com.example.old"), isInstall && isDeleted);
  EXPECT_EQ(has("send com.corvid.Larkspur enabled=true"), isInstall && outcome == "done");
  EXPECT_EQ(has("send com.corvid.Larkspur enabled=false"),
            isDeleted && !isIn("forget count", step));
  EXPECT_EQ(scratchDirectories(), step == "unpack" && call.find("Directory") == call.npos);
  // The number is that call's own.
  EXPECT_TRUE(outcome == "done" || isIn("existence get set copyItem flush", call) ||
              said.find("flush") != said.npos || isIn("forget", step) || step.empty() ||
              outcome.ends_with(number) || (said + " | ").find(": " + number + " | ") != said.npos)
      << said;
}

TEST_P(SeamFailureTest, EndsAsTheFailedCallSays) {
  int runs = 0;
  for (int round = 0; round < (kEveryPoint ? std::ssize(kCodes) : 1); ++round) {
    for (int nth = 1; nth == 1 || !failed.empty(); ++nth, ++runs) {
      const int code = kCodes[(nth + round) % std::ssize(kCodes)];
      prepare(operation);
      const std::string said = run(nth, code);
      SCOPED_TRACE(failed.empty() ? "none" : failed[0]);
      expectEnd(said, code);
      expectSoundAndHealing();
    }
  }
  RecordProperty("runs", runs);
}

INSTANTIATE_TEST_SUITE_P(Each, SeamFailureTest,
                         ::testing::Combine(::testing::Values(kNew, kUpdate, kRename, kDelete,
                                                              kFind, kList),
                                            ::testing::Bool()));

}  // namespace
}  // namespace larkspur::test
