// SPDX-License-Identifier: Apache-2.0
// Operations on trees with as few system calls and checks as possible.
#pragma once

#include <string>

namespace larkspur::bench {

/// Ends the program with the reason unless `succeeded`.
void require(bool succeeded, const std::string& what);

/// Sets every directory below `path` to 0755 and every file to 0444, and refuses links.
void makeReadOnly(const std::string& path);

/// Looks at everything below `path`: nothing may be mounted there.
void requireNoMount(const std::string& path);

/// Removes the directory with all its contents, if it exists.
void removeTree(const std::string& path);

/// Copies one file inside the kernel, with its mode and times.
void copyFile(const std::string& source, const std::string& target);

}  // namespace larkspur::bench
