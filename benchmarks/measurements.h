// SPDX-License-Identifier: Apache-2.0
// The groups of measurements; each function registers one.
#pragma once

namespace larkspur::bench {

/// Installs against the floor and the bare tool, by archive and by number of services, and the
/// steps that their time goes into.
void registerInstalls();

/// Lookups against the raw loop, by place of the hit and by number of services.
void registerLookups();

/// Deletions against the floor.
void registerDeletions();

/// What depends on the host: the memory that it holds, the real bus and journal, the memory that
/// the library needs.
void registerMemory();
void registerHosts();

}  // namespace larkspur::bench
