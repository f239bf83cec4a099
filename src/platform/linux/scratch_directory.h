// SPDX-License-Identifier: Apache-2.0
// Creates the directories that archives are unpacked in.
#pragma once

#include <string>

namespace larkspur::linuxos {

/// Creates a directory with mode 0700 and a random name, and returns its path. Tries, in this
/// order, until one works: the temporary area, if it is on the mount of `home`; `home` or its
/// nearest existing parent; the temporary area; /var/tmp. Fails with the first error.
std::string makeScratchDirectory(const std::string& home);

}  // namespace larkspur::linuxos
