// SPDX-License-Identifier: Apache-2.0
// Lookups compared with the raw loop: one read of the directory and two of each attribute, nothing
// parsed.
#include <algorithm>
#include <iterator>
#include <string>

#include "comparison.h"
#include "fixtures.h"
#include "floor.h"
#include "measurements.h"
#include "report.h"

namespace larkspur::bench {
namespace {

enum class Place { first, last, nowhere };

std::string keyAt(LarkspurFramework& framework, Place place) {
  if (place == Place::nowhere) return "no such version";
  const std::vector<std::string> keys = framework.getDeclarationVersionKeys();
  return place == Place::first ? keys.front() : keys.back();
}

std::vector<Contender> libraryAndLoop(const std::string& services, Place place) {
  const std::string root = Area::current().root(std::stoul(services));
  std::shared_ptr<LarkspurFramework> framework = quietFramework(root);
  const std::string key = keyAt(*framework, place);
  const auto find = [=] {
    try {
      framework->findServiceType(key);
    } catch (const LarkspurError&) {
      // A miss includes its exception.
    }
  };
  return {{"library, " + services, find}, {"raw loop, " + services, [=] { rawLoop(root, key); }}};
}

void addRow(const Comparison& done, const std::string& name, const std::string& services,
            std::optional<double> target = {}) {
  Report::current().add("lookup, " + name + ", " + services + " services against the raw loop",
                        done.ratio("library, " + services, "raw loop, " + services), target);
}

void hit(Place place, const std::string& name, const std::string& services, int rounds) {
  compare(
      "lookup/" + name + "/services:" + services, rounds,
      [=] { return libraryAndLoop(services, place); },
      [=](const Comparison& done) { addRow(done, name, services); });
}

void growth(const Comparison& done, const std::string& name, std::optional<double> target) {
  const Spread ratio = done.ratio(name + ", 10000", name + ", 1000");
  Report::current().add("growth from 1000 to 10000 services over 10, " + name,
                        {ratio.lower / 10, ratio.median / 10, ratio.upper / 10}, target);
}

void misses(const std::vector<std::string>& all, int rounds, std::optional<double> target) {
  compare(
      "lookup/miss/services:" + all.back(), rounds,
      [=] {
        std::vector<Contender> contenders;
        for (const std::string& services : all)
          std::ranges::move(libraryAndLoop(services, Place::nowhere),
                            std::back_inserter(contenders));
        return contenders;
      },
      [=](const Comparison& done) {
        for (const std::string& services : all) {
          addRow(done, "miss", services, target);
          Report::current().plot("lookups.dat", services,
                                 {1e3 * done.seconds("library, " + services).median,
                                  1e3 * done.seconds("raw loop, " + services).median});
        }
        if (all.size() == 1) return;
        growth(done, "library", 1.10);
        growth(done, "raw loop", std::nullopt);
      });
}

}  // namespace

void registerLookups() {
  const std::pair<const char*, int> kHits[] = {{"10", 501}, {"1000", 51}, {"10000", 21}};
  for (const auto& [services, rounds] : kHits) {
    hit(Place::first, "hit first", services, rounds);
    hit(Place::last, "hit last", services, rounds);
  }
  misses({"10"}, 501, std::nullopt);
  misses({"1000", "10000"}, 61, 1.25);
}

}  // namespace larkspur::bench
