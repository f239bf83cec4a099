// SPDX-License-Identifier: Apache-2.0
// Where archives are unpacked.
#pragma once

#include <string>

namespace larkspur::linuxos {

/// Makes a directory of mode 0700 and of a random name, and returns its path. Tries, in this
/// order, until one can be made: the temporary area, if it is on the mount of `home`; `home` or its
/// nearest existing parent; the temporary area; /var/tmp. Fails with the number of the first.
std::string makeScratchDirectory(const std::string& home);

}  // namespace larkspur::linuxos
