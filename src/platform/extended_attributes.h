// SPDX-License-Identifier: Apache-2.0
// Named values that live on a file or directory itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <larkspur/file_url.h>

namespace larkspur {

/// Names are given without the namespace that a file system may want; the backend adds it.
/// Links in the path are followed. Both calls answer with a negative result, and the reason in
/// `errno`, when they fail.
class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;

  /// Stores exactly `value`, in place of any earlier one.
  virtual int set(const FileURL& item, const std::string& name, std::string_view value) = 0;

  /// Reads the value into `buffer` and returns its length. A `size` of 0 asks for the length
  /// alone. A buffer that is too small is a failure.
  virtual std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                             std::size_t size) = 0;
};

}  // namespace larkspur
