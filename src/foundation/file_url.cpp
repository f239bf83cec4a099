// SPDX-License-Identifier: Apache-2.0
// File URLs on plain strings: std::filesystem::path turns "root" / "/etc" into "/etc" and sees no
// last component before a trailing slash.
#include <larkspur/file_url.h>

#include <cerrno>

#include "foundation/percent_encoding.h"

namespace larkspur {
namespace {

constexpr std::string_view kScheme = "file://";

std::string appended(std::string_view directory, std::string_view component) {
  const std::size_t name = component.find_first_not_of('/');
  component = name == std::string_view::npos ? std::string_view() : component.substr(name);
  std::string path;
  path.reserve(directory.size() + 1 + component.size());
  path += directory;
  if (!path.ends_with('/')) path += '/';
  return path += component;
}

}  // namespace

FileURL::FileURL(const std::filesystem::path& path)
    : path_(path.is_absolute()
                ? path.native()
                : appended(std::filesystem::current_path().native(), path.native())) {}

std::optional<FileURL> FileURL::parse(std::string_view text) {
  const bool isLocal = text.starts_with(kScheme) && text.substr(kScheme.size()).starts_with('/');
  std::optional<std::string> path;
  if (isLocal) path = percentDecoded(text.substr(kScheme.size()));
  if (!path) {
    errno = EINVAL;
    return std::nullopt;
  }
  FileURL url;
  url.path_ = std::move(*path);
  return url;
}

std::string FileURL::absoluteString() const { return std::string(kScheme) + percentEncoded(path_); }

FileURL FileURL::appendingPathComponent(std::string_view component) const {
  FileURL url;
  url.path_ = appended(path_, component);
  return url;
}

std::string_view FileURL::lastPathComponent() const noexcept {
  const std::string_view path = path_;
  const std::size_t last = path.find_last_not_of('/');
  if (last == std::string_view::npos) return path.substr(0, 1);
  const std::size_t slash = path.find_last_of('/', last);
  return path.substr(slash + 1, last - slash);
}

}  // namespace larkspur
