// SPDX-License-Identifier: Apache-2.0
// Installs compared with the floor and the bare tool. Every install is an update: it also removes
// the old tree, record and saved copy.
#include <optional>
#include <string>

#include "comparison.h"
#include "fixtures.h"
#include "floor.h"
#include "measurements.h"
#include "raw_tool.h"
#include "raw_tree.h"
#include "report.h"
#include "steps.h"
#include "support/platform_scope.h"

namespace larkspur::bench {
namespace {

struct Case {
  const char* archive;
  std::size_t services;
  int rounds;
  std::optional<double> againstFloor = {};
  std::optional<double> againstTool = {};
};

std::vector<Contender> libraryAndFloor(const Delivery& delivery, std::size_t services) {
  const std::string root = Area::current().root(services);
  std::shared_ptr<LarkspurFramework> framework = quietFramework(root);
  return {{"library", [=] { install(*framework, delivery); }},
          {"floor", [=] { Floor(root).install(delivery); }}};
}

// The tool alone, into a new directory; its removal is not measured.
Contender bareTool(const std::string& options, const Delivery& delivery) {
  const std::string path = Area::current().freshPath();
  const std::vector<std::string> command{"/usr/bin/unzip", options, delivery.archive, "-d", path};
  const auto nothing = [] {};
  return {"unzip " + options, [=] { runTool(command); }, nothing, [=] { removeTree(path); }};
}

void againstFloorAndTool(const Case& which) {
  const std::string archive = which.archive;
  compare(
      "install/" + archive, which.rounds,
      [=] {
        const Delivery delivery = Area::current().delivery(archive);
        std::vector<Contender> contenders = libraryAndFloor(delivery, which.services);
        contenders.push_back(bareTool("-o", delivery));
        contenders.push_back(bareTool("-qo", delivery));
        return contenders;
      },
      [=](const Comparison& done) {
        Report& report = Report::current();
        const std::string row = "install *" + archive + "* against ";
        report.add(row + "the floor", done.ratio("library", "floor"), which.againstFloor);
        report.add(row + "bare `unzip -o`", done.ratio("library", "unzip -o"), which.againstTool);
        report.add(row + "bare `unzip -qo`", done.ratio("library", "unzip -qo"));
      });
}

void byNumberOfServices(const Case& which) {
  const std::string services = std::to_string(which.services);
  compare(
      "install/tiny/services:" + services, which.rounds,
      [=] { return libraryAndFloor(Area::current().delivery("tiny"), which.services); },
      [=](const Comparison& done) {
        Report::current().add("install *tiny* with " + services + " services against the floor",
                              done.ratio("library", "floor"), which.againstFloor);
        Report::current().plot(
            "installs.dat", services,
            {1e3 * done.seconds("library").median, 1e3 * done.seconds("floor").median});
      });
}

using StepSeconds = std::array<std::vector<double>, kStepNames.size()>;

std::function<void()> stepping(std::function<void()> run, std::shared_ptr<StepSeconds> into) {
  return [run = std::move(run), into = std::move(into)] {
    StepClock clock;
    run();
    const auto& seconds = clock.seconds();
    for (std::size_t step = 0; step < seconds.size(); ++step) {
      (*into)[step].push_back(seconds[step]);
    }
  };
}

// Recognises the steps of the library by its platform calls.
void byStep(const std::string& archive, int rounds) {
  const auto library = std::make_shared<StepSeconds>(), floor = std::make_shared<StepSeconds>();
  compare(
      "install/" + archive + "/steps", rounds,
      [=] {
        std::vector<Contender> both = libraryAndFloor(Area::current().delivery(archive), 10);
        const std::function<void()> bare = both[0].run;
        const auto hooked = [bare] {
          const test::ScopedPlatform scope;
          test::hookEverySeam(beginStepOfCall);
          bare();
        };
        both[0].run = stepping(hooked, library);
        both[1].run = stepping(both[1].run, floor);
        return both;
      },
      [=](const Comparison& done) {
        const double whole = done.seconds("floor").median;
        std::vector<double> shares[2];
        for (std::size_t step = 0; step < kStepNames.size(); ++step) {
          shares[0].push_back(100 * spreadOf((*library)[step]).median / whole);
          shares[1].push_back(100 * spreadOf((*floor)[step]).median / whole);
        }
        shares[0].push_back(1e3 * done.seconds("library").median);
        shares[1].push_back(1e3 * whole);
        Report::current().steps(archive, shares[0]);
        Report::current().steps(archive + " (floor)", shares[1]);
      });
}

}  // namespace

void registerInstalls() {
  for (const Case& which : {Case{"tiny", 10, 301, 1.05}, Case{"small", 10, 301, 1.00},
                            Case{"many", 10, 31, 0.87, 1.25}, Case{"big", 10, 21, 1.02}}) {
    againstFloorAndTool(which);
    byStep(which.archive, which.rounds / 2);
  }
  for (const Case& which : {Case{"tiny", 10, 201}, Case{"tiny", 100, 201, 0.80},
                            Case{"tiny", 1000, 101, 1.05}, Case{"tiny", 10000, 15}}) {
    byNumberOfServices(which);
  }
}

}  // namespace larkspur::bench
