// SPDX-License-Identifier: Apache-2.0
// What the C interface demands of the texts it is given.
#pragma once

namespace larkspur::c {

/// Refuses NULL and bytes that are not UTF-8: the record, the bus and the root take nothing else.
/// `name` is the member's or parameter's. Returns the text.
const char* requireText(const char* text, const char* name);

/// Refuses what cannot be the name of a service's directory, or is that of something else.
void requireServiceType(const char* serviceType);

}  // namespace larkspur::c
