// SPDX-License-Identifier: Apache-2.0
// Checks the arguments of each operation and calls it in C++.
#include <cstdint>
#include <filesystem>
#include <limits>
#include <system_error>

#include <larkspur/larkspur.h>

#include "c/report.h"
#include "c/store.h"
#include "c/text.h"

using namespace larkspur::c;

namespace {

larkspur::FileURL archiveAt(const char* path) {
  require(path != nullptr, "archive", " is NULL");
  require(path[0] != '\0', "archive", " is empty");
  return larkspur::FileURL(path);
}

// The analytics event limits the size; no real archive reaches that limit.
void requireCountableSize(const larkspur::FileURL& archive) {
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(archive.path(), unknown);
  require(unknown || size < std::numeric_limits<std::int64_t>::max() / 2, "archive",
          " is too large");
}

larkspur::Installation installationOf(const larkspur_install_options* options) {
  require(options != nullptr, "options", " is NULL");
  require(options->size >= sizeof(larkspur_install_options), "size",
          " is not sizeof(larkspur_install_options)");
  requireServiceType(options->service_type);
  larkspur::Installation installation{
      options->service_type, archiveAt(options->archive), requireText(options->version, "version"),
      requireText(options->identifier, "identifier"), requireText(options->sha256, "sha256")};
  requireCountableSize(installation.archive);
  if (options->content_type != nullptr)
    installation.contentType = requireText(options->content_type, "content_type");
  installation.force = options->force != 0;
  return installation;
}

}  // namespace

int larkspur_check_archive(larkspur_store* store, const char* archive, larkspur_error* error) {
  return reported(error, [&] { frameworkOf(store).checkArchive(archiveAt(archive)); });
}

int larkspur_install(larkspur_store* store, const larkspur_install_options* options,
                     larkspur_error* error) {
  return reported(error, [&] {
    larkspur::LarkspurFramework& framework = frameworkOf(store);
    framework.installArchive(installationOf(options));
  });
}

int larkspur_delete(larkspur_store* store, const char* version, larkspur_error* error) {
  return reported(error,
                  [&] { frameworkOf(store).deleteService(requireText(version, "version")); });
}
