// SPDX-License-Identifier: Apache-2.0
// Deletions compared with the floor; the deleted service was installed and flushed before.
#include <string>

#include "comparison.h"
#include "fixtures.h"
#include "floor.h"
#include "measurements.h"
#include "report.h"

namespace larkspur::bench {
namespace {

void deletionOf(const std::string& archive, int rounds) {
  compare(
      "delete/" + archive, rounds,
      [=] {
        const Delivery delivery = Area::current().delivery(archive);
        const std::string root = Area::current().root(10);
        std::shared_ptr<LarkspurFramework> framework = quietFramework(root);
        const auto prepare = [=] { Floor(root).install(delivery); };
        return std::vector<Contender>{
            {"library", [=] { framework->deleteService(delivery.version); }, prepare},
            {"floor", [=] { Floor(root).remove(delivery.version); }, prepare}};
      },
      [=](const Comparison& done) {
        Report::current().add("delete *" + archive + "* against the floor",
                              done.ratio("library", "floor"), 1.05);
      });
}

}  // namespace

void registerDeletions() {
  deletionOf("small", 301);
  deletionOf("many", 41);
}

}  // namespace larkspur::bench
