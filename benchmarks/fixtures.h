// SPDX-License-Identifier: Apache-2.0
// What is measured upon: archives, and roots full of services, made on first use.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <larkspur/larkspur.h>

namespace larkspur::bench {

/// One archive and the keys it comes with.
struct Delivery {
  std::string serviceType;
  std::string archive;
  std::string version;
  std::string identifier;
  std::string hash = std::string(64, 'a');
  std::string contentType = "application/zip";
};

/// The directory of the run. `HOME` and `TMPDIR` lie in it, so that a new tree can be exchanged
/// with an old one. The volume is the run's own.
class Area {
 public:
  static Area& current();

  /// Works in `path`, an empty directory, and leaves there what it made.
  void use(const std::string& path);

  /// A delivery of one of these archives:
  /// - "tiny": one file of 200 bytes;
  /// - "small": 12 files, 40 KB;
  /// - "many": 5,000 files of 1 KB in 200 directories;
  /// - "big": one file of 200 MB that hardly compresses.
  Delivery delivery(const std::string& name);

  /// A root with that many services, each a directory and a record with a declaration of its own.
  std::string root(std::size_t services);

  /// A path in the area that nothing is at yet.
  std::string freshPath();

  /// Hands everything to the disk, so that no measurement pays for what another has written.
  void settle() const;

 private:
  std::string path_;
  int descriptor_ = -1;
  int fresh_ = 0;
};

/// The library on the root, told to send nothing anywhere; `post` and `sendEvent` do nothing.
std::unique_ptr<LarkspurFramework> quietFramework(const std::string& root);

/// Puts log, notification center and analytics that do nothing in place, or back the system's own.
void useSinks();
void useSystemServices();

/// The one call of the library under most measurements.
void install(LarkspurFramework& framework, const Delivery& delivery);

}  // namespace larkspur::bench
