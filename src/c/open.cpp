// SPDX-License-Identifier: Apache-2.0
// Opens and closes stores. Creates a missing root itself: `createFramework` exits if it cannot.
#include <filesystem>
#include <memory>
#include <system_error>

#include <larkspur/larkspur.h>

#include "c/hooks.h"
#include "c/report.h"
#include "c/store.h"
#include "c/text.h"

namespace larkspur::c {
namespace {

namespace fs = std::filesystem;

void requireRoot(const char* root) {
  requireText(root, "root");
  require(root[0] == '/', "root", " is not an absolute path");
}

void makeRoot(const fs::path& root) {
  constexpr fs::perms kRootMode = fs::perms::owner_all | fs::perms::group_read |
                                  fs::perms::group_exec | fs::perms::others_read |
                                  fs::perms::others_exec;
  std::error_code unknown;
  if (fs::is_directory(root, unknown)) return;
  fs::path made;
  for (const fs::path& name : root) {
    made /= name;
    if (fs::create_directory(made)) fs::permissions(made, kRootMode);
  }
}

std::unique_ptr<larkspur_store> openStore(const char* root) {
  auto store = std::make_unique<larkspur_store>();
  const ProcessLock lock;
  ProcessLock::collectErrorLines();
  makeRoot(root);
  LarkspurFramework::larkspurPath() = root;
  store->framework = std::make_unique<LarkspurFramework>();
  if (!store->framework->isDarwinNotifCenterSuccess())
    throw Refusal{LARKSPUR_NOT_READY, "the system", " has no notification center"};
  if (!store->framework->isDefaultPathExists())
    throw Refusal{LARKSPUR_NOT_READY, "root", " disappeared while it was opened"};
  ++ProcessLock::openStores();
  return store;
}

}  // namespace
}  // namespace larkspur::c

const char* larkspur_version(void) { return larkspur::version(); }

int larkspur_open(const char* root, larkspur_store** store, larkspur_error* error) {
  using namespace larkspur::c;
  if (store != nullptr) *store = nullptr;
  return reported(error, [&] {
    require(store != nullptr, "store", " is NULL");
    requireRoot(root);
    *store = openStore(root).release();
  });
}

void larkspur_close(larkspur_store* store) {
  if (store == nullptr) return;
  const larkspur::c::ProcessLock lock;
  delete store;
  --larkspur::c::ProcessLock::openStores();
}
