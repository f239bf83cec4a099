// SPDX-License-Identifier: Apache-2.0
// JSON text from and to dictionaries; plain code, since real bad input makes it fail.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace larkspur {

/// Why a text could not be written or read; its message is the serializer's own.
class JSONError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A dictionary that was read. Its owner may move it; views into it live as long as it does.
class JSONObject {
 public:
  /// The text under `key`; nothing when the key is absent or its value is no text.
  std::optional<std::string_view> stringForKey(std::string_view key) const;

 private:
  struct Release {
    void operator()(void* value) const noexcept;
  };
  using Handle = std::unique_ptr<void, Release>;
  explicit JSONObject(Handle value) : value_(std::move(value)) {}

  Handle value_;

  friend class JSONSerialization;
};

class JSONSerialization {
 public:
  /// The dictionary as compact JSON in UTF-8: no blanks, the solidus escaped, no final newline.
  /// Throws `JSONError` for text that is not UTF-8.
  static std::string data(const std::map<std::string, std::string>& dictionary);

  /// Reads any valid JSON text whose top level is an object or an array; nothing stands for an
  /// array. Throws `JSONError` for any other text.
  static std::optional<JSONObject> object(std::string_view data);
};

}  // namespace larkspur
