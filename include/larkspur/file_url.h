// SPDX-License-Identifier: Apache-2.0
// The location of an item on this machine, as a path and as the text of a file URL.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <larkspur/export.h>

namespace larkspur {

/// An absolute location on this machine. A value: copies are independent, and any number of
/// threads may read one. Nothing here touches the disk, except that a relative path is resolved
/// against the working directory at construction.
class LARKSPUR_EXPORT FileURL {
 public:
  /// Takes `path` as it is, bytes and all; a relative one is put behind the working directory,
  /// so that no name can reach a tool as an option.
  /// Throws `std::filesystem::filesystem_error` when there is no working directory to resolve
  /// against.
  explicit FileURL(const std::filesystem::path& path);

  /// Reads the text of a file URL: "file://", no host, and an absolute, percent-encoded path.
  /// Nothing, with `errno` at `EINVAL`, for any other text: a host (also "localhost"), a query, a
  /// fragment, a character that a URL's path must encode, or an escape that is cut short.
  static std::optional<FileURL> parse(std::string_view text);

  /// The path, in the bytes that the file system uses.
  const std::string& path() const noexcept { return path_; }

  /// The text form: "file://" and the percent-encoded path. `parse` reads it back.
  std::string absoluteString() const;

  /// The location one component below. The component is taken unchanged but for leading slashes,
  /// which fall away, so the result never leaves for the root of the file system: "/x" gives the
  /// same as "x". An empty component gives this location with a trailing slash.
  FileURL appendingPathComponent(std::string_view component) const;

  /// The name behind the last slash, trailing slashes aside; "/" for the root of the file system.
  std::string_view lastPathComponent() const noexcept;

  /// Two locations are equal when their paths are the same bytes.
  bool operator==(const FileURL& other) const noexcept { return path_ == other.path_; }
  /// The opposite, which C++17 does not derive.
  bool operator!=(const FileURL& other) const noexcept { return path_ != other.path_; }

 private:
  FileURL() = default;

  std::string path_;
};

}  // namespace larkspur
