// SPDX-License-Identifier: Apache-2.0
// Extended attributes: named values stored with a file or directory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <larkspur/file_url.h>

namespace larkspur {

/// Names come without a namespace; the backend adds it. Links in the path are followed. On failure
/// both calls return a negative number and set `errno`.
class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;

  /// Sets the value to exactly `value`.
  virtual int set(const FileURL& item, const std::string& name, std::string_view value) = 0;

  /// Reads the value into `buffer` and returns its length; with a `size` of 0 only returns the
  /// length. Fails if the buffer is too small.
  virtual std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                             std::size_t size) = 0;
};

}  // namespace larkspur
