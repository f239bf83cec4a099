// SPDX-License-Identifier: Apache-2.0
// The file manager on POSIX calls, relative to descriptors where a tree is walked.
#pragma once

#include <memory>

#include "platform/file_manager.h"

namespace larkspur::linuxos {

std::shared_ptr<FileManager> makeFileManager();

}  // namespace larkspur::linuxos
