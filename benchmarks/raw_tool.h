// SPDX-License-Identifier: Apache-2.0
// Running a tool with nothing around it: the yardstick of an extraction.
#pragma once

#include <string>
#include <vector>

namespace larkspur::bench {

/// Runs the tool to its end, in the environment and the session that the library gives it, and
/// reads its two streams as they fill. A failure ends the program, since nothing measured after it
/// would mean anything.
void runTool(const std::vector<std::string>& arguments);

}  // namespace larkspur::bench
