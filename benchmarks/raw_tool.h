// SPDX-License-Identifier: Apache-2.0
// Runs a tool with as little overhead as possible: the yardstick for an extraction.
#pragma once

#include <string>
#include <vector>

namespace larkspur::bench {

/// Runs the tool to its end, in the environment and session that the library gives it, and reads
/// both streams. A failure ends the program.
void runTool(const std::vector<std::string>& arguments);

}  // namespace larkspur::bench
