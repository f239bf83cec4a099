// SPDX-License-Identifier: Apache-2.0
// JSON by Boost.JSON, which is compiled into this file.

// Renamed: a program that links the static library may use another version of Boost.
#define BOOST_NO_USER_CONFIG  // The rename would change its file name too.
#define boost larkspur_boost
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/src.hpp>
#undef boost

#include <algorithm>

#include "foundation/utf8.h"
#include "platform/json_serialization.h"

namespace larkspur {
namespace {

namespace json = larkspur_boost::json;

// Keeps the members of a top-level object and skips everything nested deeper.
class MemberCollector {
 public:
  using Error = larkspur_boost::system::error_code;
  using Text = json::string_view;

  // Limits that the parser requires.
  static constexpr auto max_object_size = static_cast<std::size_t>(-1);
  static constexpr auto max_array_size = max_object_size;
  static constexpr auto max_key_size = max_object_size;
  static constexpr auto max_string_size = max_object_size;

  bool on_object_begin(Error&) {
    if (depth_ == 0) members.emplace().reserve(kUsualMembers);
    return enter();
  }
  bool on_object_end(std::size_t, Error&) { return leave(); }
  bool on_array_begin(Error&) { return enter(); }
  bool on_array_end(std::size_t, Error&) { return leave(); }

  // Strings with escapes arrive in parts.
  bool on_key_part(Text part, std::size_t, Error&) { return append(part); }
  bool on_key(Text part, std::size_t, Error&) {
    append(part);
    if (auto* into = topLevelMembers()) into->emplace_back(std::exchange(text_, {}), std::nullopt);
    return true;
  }
  bool on_string_part(Text part, std::size_t, Error&) { return append(part); }
  bool on_string(Text part, std::size_t, Error&) {
    append(part);
    if (auto* into = topLevelMembers()) into->back().second = std::exchange(text_, {});
    return true;
  }

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_number_part(Text, Error&) { return true; }
  bool on_int64(std::int64_t, Text, Error&) { return true; }
  bool on_uint64(std::uint64_t, Text, Error&) { return true; }
  bool on_double(double, Text, Error&) { return true; }
  bool on_bool(bool, Error&) { return true; }
  bool on_null(Error&) { return true; }
  bool on_comment_part(Text, Error&) { return true; }
  bool on_comment(Text, Error&) { return true; }

  using Members = std::vector<JSONObject::Member>;
  std::optional<Members> members;  // nullopt unless the top level is an object.
  bool isContainer = false;

 private:
  static constexpr std::size_t kUsualMembers = 4;

  // Null unless the parser is directly inside the top-level object.
  Members* topLevelMembers() { return depth_ == 1 && members ? &*members : nullptr; }
  bool append(Text part) {
    if (topLevelMembers()) text_.append(part.data(), part.size());
    return true;
  }
  bool enter() {
    ++depth_;
    return isContainer = true;
  }
  bool leave() {
    --depth_;
    return true;
  }

  std::string text_;
  std::size_t depth_ = 0;
};

void append(std::string& text, const std::string& value) {
  if (!isUTF8(value)) throw JSONError("unable to encode a string that is not UTF-8");
  for (const char character : json::serialize(json::string_view(value))) {
    if (character == '/') text += '\\';
    text += character;
  }
}

}  // namespace

std::optional<std::string_view> JSONObject::stringForKey(std::string_view key) const {
  const auto last = std::find_if(members_.rbegin(), members_.rend(),
                                 [&](const Member& member) { return member.first == key; });
  return last == members_.rend() ? std::nullopt : std::optional<std::string_view>(last->second);
}

std::string JSONSerialization::data(const std::map<std::string, std::string>& dictionary) {
  std::string text = "{";
  for (const auto& [key, value] : dictionary) {
    if (text.size() > 1) text += ',';
    append(text, key);
    text += ':';
    append(text, value);
  }
  return text += '}';
}

std::optional<JSONObject> JSONSerialization::object(std::string_view data) {
  json::parse_options options;
  options.max_depth = kMaximalDepth;
  json::basic_parser<MemberCollector> parser(options);
  MemberCollector::Error error;
  const std::size_t end = parser.write_some(/*more=*/false, data.data(), data.size(), error);
  MemberCollector& found = parser.handler();
  if (!error && end < data.size()) error = json::error::extra_data;
  if (error) throw JSONError(error.message());
  if (!found.isContainer) throw JSONError("neither an object nor an array");
  if (!found.members) return std::nullopt;
  return JSONObject(std::move(*found.members));
}

}  // namespace larkspur
