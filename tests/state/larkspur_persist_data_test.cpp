// SPDX-License-Identifier: Apache-2.0
// Writing the record: its bytes, and each failure.
#include "state/larkspur_persist_data.h"

#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(RecordedTest, RecordIsReplaced) {
  for (const auto& row : table(4, R"(
1 | id | ab/12 | {"contentType":"","declarationIdentifierKey":"id","declarationVersionKey":"1","hashSHA256":"ab\/12"}
 | "\ | é | {"contentType":"","declarationIdentifierKey":"\"\\","declarationVersionKey":"","hashSHA256":"é"})")) {
    // Links in the path are followed, and so is one at its end.
    std::filesystem::create_directory_symlink(root(), directory() / ("link" + row[0]));
    LarkspurPersistData(FileURL(directory() / ("link" + row[0])), row[0], row[1], row[2], "")
        .persistSystemState();
    EXPECT_EQ(recordBytes(root()), row[3]);
  }
}

// A record without some of its keys.
struct IncompleteRecord : LarkspurPersistData {
  using LarkspurPersistData::LarkspurPersistData;
  bool hasMandatoryKeys(const SystemState&) const override {
    return LarkspurPersistData::hasMandatoryKeys(
        {{"contentType", ""}, {"a", ""}, {"b", ""}, {"c", ""}, {"declarationVersionKey", ""}});
  }
};

TEST_F(RecordedTest, RefusedRecordsAreNotWritten) {
  const auto persist = [&](const std::string& place, const std::string& text = "") {
    return report([&] {
      LarkspurPersistData(FileURL(root().string() + place), "", "", text, "").persistSystemState();
    });
  };
  EXPECT_EQ(
      report([&] { IncompleteRecord(FileURL(root()), "", "", "", "").persistSystemState(); },
             kEverything),
      R"(Internal Error | error PersistData: Missing keys for persisting system state: ["declarationIdentifierKey", "hashSHA256"] | error PersistData: System state dictionary doesn't have mandatory keys)");
  EXPECT_TRUE(
      persist("", "\xC3")
          .starts_with("Internal Error | error PersistData: JSONSerialization internal error: "));
  EXPECT_EQ(recorder->lines.size(), 2U);
  for (const std::string& place : {std::string("/missing"), std::string("/\0", 2)})
    EXPECT_EQ(persist(place),
              "Internal Error | error PersistData: Persisting system state failed with error: "
              "Internal Error");
  EXPECT_EQ(persist("", std::string(1 << 17, 'x')), persist("/missing"))
      << "too long for the file system";
  wrap<ForwardingExtendedAttributes>(&Platform::extendedAttributes,
                                     [](const char*) { throw std::runtime_error("strange"); });
  EXPECT_EQ(persist(""),
            "Internal Error | error PersistData: Persist system state, other Error: strange");
  wrap<ForwardingExtendedAttributes>(&Platform::extendedAttributes,
                                     [](const char*) { throw LarkspurError::unzipFailed(); });
  EXPECT_EQ(persist(""),
            "Internal Error | error PersistData: Persisting system state failed with error: "
            "Failed unzip of managed configuration file");
  EXPECT_EQ(recordBytes(root()), "");
}

}  // namespace larkspur::test
