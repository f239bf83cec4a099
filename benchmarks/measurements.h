// SPDX-License-Identifier: Apache-2.0
// The groups of measurements; each function registers one.
#pragma once

namespace larkspur::bench {

/// Installs compared with the floor and the bare tool, by archive and by number of services, and
/// how long each step takes.
void registerInstalls();

/// Lookups compared with the raw loop, by position of the match and by number of services.
void registerLookups();

/// Deletions compared with the floor.
void registerDeletions();

/// Costs that depend on the host: the memory it holds, the real bus and journal, the memory that
/// the library needs.
void registerMemory();
void registerHosts();

}  // namespace larkspur::bench
