// SPDX-License-Identifier: Apache-2.0
// Unpacks an archive with the system's unzip, checks the result and swaps it into place.
#include <larkspur/larkspur_error.h>

#include "foundation/attempt.h"
#include "foundation/synchronous.h"
#include "foundation/utf8.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {
namespace {

constexpr char kUnzip[] = "/usr/bin/unzip";

}  // namespace

void Utilities::unzipArchive(const FileURL& archive, const FileURL& destination) const {
  const FileURL temporaryDirectory = createTemporaryDirectory();
  unpackArchive(archive, temporaryDirectory);
  replaceDirectory(temporaryDirectory, destination);
}

void Utilities::unpackArchive(const FileURL& archive, const FileURL& temporaryDirectory) const {
  logger_.debug("Temporary directory to unzip contents: %s", temporaryDirectory);

  const Synchronous launched;
  const std::unique_ptr<Task> task = attempt(
      [&] {
        return currentPlatform().taskLauncher->launch(
            FileURL(kUnzip), {"-o", archive.path(), "-d", temporaryDirectory.path()},
            temporaryDirectory);
      },
      [&](int code) { logger_.error("Error running unzip from command line, errno: %d", code); },
      LarkspurError::unzipFailed());
  // Does not wait for the tool; the reads below do, until its streams end.
  launched.signal();
  launched.wait();

  const std::string output = task->readStandardOutputToEnd();
  const std::string errors = task->readStandardErrorToEnd();
  if (!output.empty() && logger_.isEnabled(LogLevel::debug)) {
    logger_.debug("unzip configuration file cmdline output: %s", repairedUTF8(output));
  }

  // The tool's error output decides, not its exit status.
  if (!errors.empty()) {
    logger_.error("unzip configuration file from cmdline failed with error: %s",
                  repairedUTF8(errors));
    throw LarkspurError::unzipFailed();
  }
  enumerateFiles(temporaryDirectory);
}

}  // namespace larkspur
