// SPDX-License-Identifier: Apache-2.0
// The location of an item on this machine, as a path and as a file URL.
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
  /// Takes the bytes of `path` unchanged. A relative path is appended to the working directory, so
  /// no name can reach a tool as an option.
  /// Throws `std::filesystem::filesystem_error` when there is no working directory to resolve
  /// against.
  explicit FileURL(const std::filesystem::path& path);

  /// Parses a file URL: "file://", no host, and an absolute, percent-encoded path. Returns nothing
  /// and sets `errno` to `EINVAL` for any other string: with a host (also "localhost"), a query, a
  /// fragment, a character that a URL's path must encode, or an incomplete escape.
  static std::optional<FileURL> parse(std::string_view text);

  /// The path, in the bytes that the file system uses.
  const std::string& path() const noexcept { return path_; }

  /// The URL: "file://" and the percent-encoded path. `parse` reads it back.
  std::string absoluteString() const;

  /// The location one component below. Leading slashes of the component are dropped, so "/x" does
  /// not lead to the root of the file system; the rest is unchanged. With an empty component, this
  /// location with a trailing slash.
  FileURL appendingPathComponent(std::string_view component) const;

  /// The name after the last slash, without trailing slashes; "/" for the root of the file system.
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
