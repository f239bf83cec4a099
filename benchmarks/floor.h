// SPDX-License-Identifier: Apache-2.0
// The yardstick for the library: the same steps as one sequence of raw system calls, without
// platform interfaces, error handling, log, bus or analytics.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "fixtures.h"

namespace larkspur::bench {

class Floor {
 public:
  /// Works on the same root as the library, in the same format.
  explicit Floor(std::string root) : root_(std::move(root)) {}

  /// An install, with each record parsed by Jansson: sweep, scratch directory, extraction, walk and
  /// modes, flush, exchange, removal, record, saved copy, count.
  void install(const Delivery& delivery);

  /// A deletion: lookup, removal of the tree and of the saved copy, count.
  void remove(const std::string& version);

 private:
  std::optional<std::string> find(const std::string& version) const;
  void sweep(const Delivery& delivery) const;
  void replaceTree(const std::string& service, const std::string& archive) const;
  void replaceSavedCopy(const Delivery& delivery) const;
  std::size_t count() const;
  std::string savedCopy(const std::string& serviceType) const;
  std::string stagingDirectory() const;
  std::string stage(const std::string& tree) const;
  void removeWhole(const std::string& tree) const;

  std::string root_;
};

/// The yardstick for a lookup: reads the directory, then each record with two calls, up to the
/// first that contains the version. Parses nothing.
std::optional<std::string> rawLoop(const std::string& root, const std::string& version);

/// Writes the record of a delivery to the directory.
void writeRecord(const std::string& directory, const Delivery& delivery);

}  // namespace larkspur::bench
