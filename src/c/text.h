// SPDX-License-Identifier: Apache-2.0
// Checks the strings that C callers pass.
#pragma once

namespace larkspur::c {

/// Refuses NULL and bytes that are not UTF-8, which the record, the bus and the root cannot take.
/// `name` is the member's or parameter's. Returns the string.
const char* requireText(const char* text, const char* name);

/// Refuses names that the directory of a service cannot have.
void requireServiceType(const char* serviceType);

}  // namespace larkspur::c
