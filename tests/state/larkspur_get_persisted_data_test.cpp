// SPDX-License-Identifier: Apache-2.0
// Reading good and bad records, also while they change.
#include "state/larkspur_get_persisted_data.h"

#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, ReadableRecords) {
  const FileURL place = framework->servicePathURL("a b");
  LarkspurGetPersistedData reader;
  std::string found;
  const auto shown = [](std::optional<std::string> key) {
    return " " + (!key ? "-" : key->empty() ? "empty" : *key);
  };
  const auto read = [&] {
    found = reader.getSystemState(place) ? "object" : "nothing";
    found += shown(reader.getDeclarationVersion(place));
    found += shown(reader.getDeclarationIdentifier(place));
  };
  for (const auto& row : table(3, R"(
{"declarationVersionKey":"1","declarationIdentifierKey":"a/b"} | object 1 a/b | done
 { "declarationIdentifierKey" : "a\/b" , "x" : null } | object - a/b | done
{"declarationVersionKey":3,"declarationIdentifierKey":null} | object - - | done
{"declarationVersionKey":"","declarationIdentifierKey":""} | object empty empty | done
[{"declarationVersionKey":"1"}] | nothing - - | done
 |  | Internal Error \| error GetPersistedData: JSON deserialzation internal error: [^|]+
{"declarationVersionKey":"1"}x |  | Internal Error \| error GetPersistedData: JSON deserialzation internal error: [^|]+
"text" |  | Internal Error \| error GetPersistedData: JSON deserialzation internal error: [^|]+)")) {
    manage("a b", row[0]);
    found.clear();
    EXPECT_TRUE(matches(report(read, kEverything), row[2])) << row[0];
    EXPECT_EQ(found, row[1]);
    if (row[2] == "done") continue;
    EXPECT_FALSE(reader.getDeclarationVersion(place) || reader.getDeclarationIdentifier(place));
  }
}

// A record that changes between the two calls.
struct ChangingRecord : ForwardingExtendedAttributes {
  using ForwardingExtendedAttributes::ForwardingExtendedAttributes;
  std::ptrdiff_t get(const FileURL& item, const std::string& name, char* buffer,
                     std::size_t size) override {
    if (size > 0) target_->set(item, name, after);
    return ForwardingExtendedAttributes::get(item, name, buffer, size);
  }
  static inline std::string after;
};

TEST_F(StoreTest, UnreadableRecords) {
  const FileURL place = framework->servicePathURL("a b");
  const auto read = [&] {
    return report([&] { LarkspurGetPersistedData().getSystemState(place); }, kEverything);
  };
  const std::string failed =
      R"(Internal Error | error GetPersistedData: Getting system state for $/root/a b failed with error: Internal Error)";
  EXPECT_EQ(read(), failed);
  std::filesystem::create_directory(place.path());
  EXPECT_EQ(read(), failed);
  const ScopedPlatform scope;
  wrap<ChangingRecord>(&Platform::extendedAttributes);
  manage("a b", "[\"long\"]");
  ChangingRecord::after = "[]";
  EXPECT_TRUE(read().starts_with(
      "Internal Error | error GetPersistedData: JSON deserialzation internal error: "))
      << "a tail of zeros";
  ChangingRecord::after = "[\"longer\"]";
  EXPECT_EQ(read(), failed);
  wrap<ForwardingExtendedAttributes>(&Platform::extendedAttributes,
                                     [](const char*) { throw std::runtime_error("strange"); });
  EXPECT_EQ(
      read(),
      "Internal Error | error GetPersistedData: Get system state for $/root/a b, other Error: "
      "strange");
  wrap<ForwardingExtendedAttributes>(&Platform::extendedAttributes,
                                     [](const char*) { throw LarkspurError::unzipFailed(); });
  EXPECT_EQ(read(),
            "Internal Error | error GetPersistedData: Getting system state for $/root/a b failed "
            "with error: Failed unzip of managed configuration file");
}

// A subclass that supplies its own records.
struct OtherRecords : LarkspurGetPersistedData {
  std::optional<JSONObject> getSystemState(const FileURL& place) override {
    if (place.path() == "/") throw std::runtime_error("strange");
    return deserializeSystemState(
        R"({"declarationVersionKey":"1","declarationIdentifierKey":"2"})");
  }
};

TEST(GetPersistedDataTest, GettersCallTheOverriddenOperation) {
  EXPECT_EQ(OtherRecords().getDeclarationVersion(FileURL("/x")), "1");
  EXPECT_EQ(OtherRecords().getDeclarationIdentifier(FileURL("/x")), "2");
  EXPECT_EQ(OtherRecords().getDeclarationVersion(FileURL("/")), std::nullopt);
}

}  // namespace larkspur::test
