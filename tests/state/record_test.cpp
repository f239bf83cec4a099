// SPDX-License-Identifier: Apache-2.0
// Writing and reading the record: its bytes, and what fails. Lookups test more records.
#include "state/larkspur_get_persisted_data.h"

#include <sys/resource.h>

#include "state/larkspur_persist_data.h"
#include "support/store_fixture.h"

extern "C" __attribute__((weak)) void __asan_init();

namespace larkspur::test {

// Checks a record with one mandatory and one unknown key instead of its own.
struct OtherRecord : LarkspurPersistData {
  using LarkspurPersistData::LarkspurPersistData;
  bool hasMandatoryKeys(const SystemState&) const override {
    return LarkspurPersistData::hasMandatoryKeys({{"contentType", ""}, {"x", ""}});
  }
};

TEST_F(RecordedTest, RecordsAreReplacedOrRefused) {
  const auto persist = [&](const std::string& place, const std::string& identifier) {
    return report([&] {
      LarkspurPersistData(FileURL(directory() / place), "", identifier, "a/b", "é")
          .persistSystemState();
    });
  };
  fs::create_directory_symlink(root(), directory() / "link");
  for (const char* identifier : {"old", "\"\\"}) EXPECT_EQ(persist("link", identifier), "done");
  const std::string record = R"({"contentType":"é","declarationIdentifierKey":"\"\\",)"
                             R"("declarationVersionKey":"","hashSHA256":"a\/b"})";
  EXPECT_EQ(recordBytes(root()), record);
  EXPECT_EQ(persist("root", "\xC3"),
            "Internal Error\nerror PersistData: JSONSerialization internal error: ...");
  for (const std::string& place : {std::string("missing"), std::string("root\0", 5)})
    EXPECT_EQ(persist(place, ""),
              "Internal Error\nerror PersistData: Persisting system state failed with error: "
              "Internal Error");
  EXPECT_EQ(report([&] { OtherRecord(FileURL(root()), "", "", "", "").persistSystemState(); }),
            "Internal Error\nerror PersistData: Missing keys for persisting system state: "
            "[\"declarationIdentifierKey\", \"declarationVersionKey\", \"hashSHA256\"]\n"
            "error PersistData: System state dictionary doesn't have mandatory keys");
  hookEverySeam([](const char*) { throw LarkspurError::unzipFailed(); });
  EXPECT_EQ(persist("root", ""),
            "Internal Error\nerror PersistData: Persisting system state failed with error: "
            "Failed unzip of managed configuration file");
  EXPECT_EQ(recordBytes(root()), record);
}

TEST_F(RecordedTest, RecordThatNeedsTooMuchMemory) {
  if (__asan_init != nullptr) GTEST_SKIP() << "a sanitizer ends the process";
  inChild([&] {
    LarkspurPersistData huge(FileURL(root()), "", std::string(200 << 20, 'x'), "", "");
    useLog(standardErrorLog(LogLevel::error));
    const rlimit limit{300 << 20, 300 << 20};
    ::setrlimit(RLIMIT_AS, &limit);
    ::testing::internal::CaptureStderr();
    EXPECT_THROW(huge.persistSystemState(), LarkspurError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "error PersistData: JSONSerialization internal error: std::bad_alloc\n");
  });
}

TEST_F(StoreTest, RecordsThatCannotBeRead) {
  fs::create_directory_symlink(root(), directory() / "link");
  const auto readAfter = [&](const CallHook& before) {
    const ScopedPlatform scope;
    hookEverySeam(before);
    return report(
        [&] { LarkspurGetPersistedData().getSystemState(FileURL(directory() / "link")); });
  };
  // Changes the record between the two calls that read it.
  const auto becoming = [this](const char* record) {
    return [=, calls = 0, this](const char*) mutable {
      manage(".", ++calls == 1 ? "[\"1\"]" : record);
    };
  };
  const std::string failed = "Internal Error\nerror GetPersistedData: ";
  const std::string missing =
      failed + "Getting system state for $/link failed with error: Internal Error";
  EXPECT_EQ(readAfter([](auto) {}), missing);
  EXPECT_EQ(readAfter(becoming("[\"longer\"]")), missing);
  EXPECT_EQ(readAfter(becoming("[]")), failed + "JSON deserialzation internal error: ...");
  EXPECT_EQ(readAfter(failCall),
            failed + "Get system state for $/link, other Error: get: Input/output error");
}

}  // namespace larkspur::test
