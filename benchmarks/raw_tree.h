// SPDX-License-Identifier: Apache-2.0
// Trees handled by as few system calls as the system allows, and no check that is not needed.
#pragma once

#include <string>

namespace larkspur::bench {

/// Ends the program with the reason unless `succeeded`: a yardstick that failed measures nothing.
void require(bool succeeded, const std::string& what);

/// Makes every directory below `path` 0755 and every file 0444, and refuses links.
void makeReadOnly(const std::string& path);

/// Removes the directory and all it holds; a missing one is a success.
void removeTree(const std::string& path);

/// Copies one file inside the kernel, with its mode and times.
void copyFile(const std::string& source, const std::string& target);

}  // namespace larkspur::bench
