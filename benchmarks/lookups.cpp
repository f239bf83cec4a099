// SPDX-License-Identifier: Apache-2.0
// Lookups against the raw loop: one read of the directory, and of each entry two reads of the
// attribute, which are not parsed.
#include <string>

#include "comparison.h"
#include "fixtures.h"
#include "floor.h"
#include "measurements.h"
#include "report.h"

namespace larkspur::bench {
namespace {

struct Case {
  std::size_t services;
  int rounds;
};

constexpr Case kCases[] = {{10, 501}, {1000, 51}, {10000, 21}};

enum class Place { first, last, nowhere };

std::string keyAt(LarkspurFramework& framework, Place place) {
  if (place == Place::nowhere) return "no such version";
  const std::vector<std::string> keys = framework.getDeclarationVersionKeys();
  return place == Place::first ? keys.front() : keys.back();
}

std::vector<Contender> libraryAndLoop(std::size_t services, Place place) {
  const std::string root = Area::current().root(services);
  std::shared_ptr<LarkspurFramework> framework = quietFramework(root);
  const std::string key = keyAt(*framework, place);
  const auto find = [=] {
    try {
      framework->findServiceType(key);
    } catch (const LarkspurError&) {
      // A miss is measured with what it throws.
    }
  };
  return {{"library", find}, {"raw loop", [=] { rawLoop(root, key); }}};
}

void at(Place place, const std::string& name, const Case& which) {
  const std::string services = std::to_string(which.services);
  compare(
      "lookup/" + name + "/services:" + services, which.rounds,
      [=] { return libraryAndLoop(which.services, place); },
      [=](const Comparison& done) {
        Report& report = Report::current();
        const bool isMiss = place == Place::nowhere;
        report.add("lookup, " + name + ", " + services + " services against the raw loop",
                   done.ratio("library", "raw loop"),
                   isMiss && which.services > 10 ? std::optional(1.25) : std::nullopt);
        if (isMiss) {
          report.plot(
              "lookups.dat", services,
              {1e3 * done.seconds("library").median, 1e3 * done.seconds("raw loop").median});
        }
      });
}

void growth() {
  compare(
      "lookup/growth", 61,
      [] {
        std::vector<Contender> contenders;
        for (const std::size_t services : {std::size_t{1000}, std::size_t{10000}}) {
          for (Contender& contender : libraryAndLoop(services, Place::nowhere)) {
            contender.name += " " + std::to_string(services);
            contenders.push_back(std::move(contender));
          }
        }
        return contenders;
      },
      [](const Comparison& done) {
        for (const std::string name : {"library", "raw loop"}) {
          const Spread ratio = done.ratio(name + " 10000", name + " 1000");
          Report::current().add("growth from 1000 to 10000 services over 10, " + name,
                                {ratio.lower / 10, ratio.median / 10, ratio.upper / 10},
                                name == "library" ? std::optional(1.10) : std::nullopt);
        }
      });
}

}  // namespace

void registerLookups() {
  for (const Case& which : kCases) {
    at(Place::first, "hit first", which);
    at(Place::last, "hit last", which);
    at(Place::nowhere, "miss", which);
  }
  growth();
}

}  // namespace larkspur::bench
