// SPDX-License-Identifier: Apache-2.0
// Converts dictionaries to JSON and back. Not virtual: tests make it fail with bad input.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace larkspur {

/// Thrown for what cannot be written or read as JSON; the message is the serializer's.
class JSONError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A parsed dictionary. Views into it live as long as it does, even if it is moved.
class JSONObject {
 public:
  /// A key and its value; nullopt if the value is not a string.
  using Member = std::pair<std::string, std::optional<std::string>>;

  /// If a key repeats, the last one counts.
  explicit JSONObject(std::vector<Member> members) : members_(std::move(members)) {}

  /// The string under `key`; nullopt when the key is missing or its value is not a string.
  std::optional<std::string_view> stringForKey(std::string_view key) const;

 private:
  std::vector<Member> members_;
};

class JSONSerialization {
 public:
  /// How deep arrays and objects may nest in JSON that is read.
  static constexpr std::size_t kMaximalDepth = 512;

  /// The dictionary as compact JSON in UTF-8: no blanks, slashes escaped, no final newline. Throws
  /// `JSONError` for strings that are not UTF-8.
  static std::string data(const std::map<std::string, std::string>& dictionary);

  /// Reads JSON whose top level is an object, or an array, for which it returns nullopt. Throws
  /// `JSONError` for anything else.
  static std::optional<JSONObject> object(std::string_view data);
};

}  // namespace larkspur
