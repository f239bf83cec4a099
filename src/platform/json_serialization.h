// SPDX-License-Identifier: Apache-2.0
// JSON text from and to dictionaries; plain code, since real bad input makes it fail.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace larkspur {

/// Why a text could not be written or read; its message is the serializer's own.
class JSONError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A dictionary that was read. Views into it live as long as it does, also if it is moved.
class JSONObject {
 public:
  /// A key and its text; nothing stands for a value that is no text.
  using Member = std::pair<std::string, std::optional<std::string>>;

  /// Of members with the same key the last one counts.
  explicit JSONObject(std::vector<Member> members) : members_(std::move(members)) {}

  /// The text under `key`; nothing when the key is absent or its value is no text.
  std::optional<std::string_view> stringForKey(std::string_view key) const;

 private:
  std::vector<Member> members_;
};

class JSONSerialization {
 public:
  /// How deep arrays and objects may nest in a text that is read.
  static constexpr std::size_t kMaximalDepth = 512;

  /// The dictionary as compact JSON in UTF-8: no blanks, the solidus escaped, no final newline.
  /// Throws `JSONError` for text that is not UTF-8.
  static std::string data(const std::map<std::string, std::string>& dictionary);

  /// Reads any valid JSON text whose top level is an object or an array; nothing stands for an
  /// array. Throws `JSONError` for any other text.
  static std::optional<JSONObject> object(std::string_view data);
};

}  // namespace larkspur
