// SPDX-License-Identifier: Apache-2.0
// The archives, and roots full of services, that the measurements use; made on first use.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <larkspur/larkspur.h>

namespace larkspur::bench {

/// An archive and its keys.
struct Delivery {
  std::string serviceType;
  std::string archive;
  std::string version;
  std::string identifier;
  std::string hash = std::string(64, 'a');
  std::string contentType = "application/zip";
};

/// The directory of the run, on its own volume. `HOME` and `TMPDIR` are in it, so that a new tree
/// can be exchanged with an old one.
class Area {
 public:
  static Area& current();

  /// Works in `path`, an empty directory, and leaves its files there.
  void use(const std::string& path);

  /// A delivery of one of these archives:
  /// - "tiny": one file of 200 bytes;
  /// - "small": 12 files, 40 KB;
  /// - "many": 5,000 files of 1 KB in 200 directories;
  /// - "big": one file of 200 MB that hardly compresses.
  Delivery delivery(const std::string& name);

  /// A root with that many services, each a directory with a record of another declaration.
  std::string root(std::size_t services);

  /// A new path in the area.
  std::string freshPath();

  /// Flushes everything, so that no measurement pays for the writes of another.
  void settle() const;

 private:
  std::string path_;
  int descriptor_ = -1;
  int fresh_ = 0;
};

/// A framework whose `post` and `sendEvent` do nothing.
std::unique_ptr<LarkspurFramework> quietFramework(const std::string& root);

/// Replaces log, notification center and analytics by ones that do nothing, or restores them.
void useSinks();
void useSystemServices();

/// The library call behind most measurements.
void install(LarkspurFramework& framework, const Delivery& delivery);

}  // namespace larkspur::bench
