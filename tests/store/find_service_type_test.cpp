// SPDX-License-Identifier: Apache-2.0
// Lookups by declaration keys over good and bad records.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, LookupsReadEveryRecord) {
  manage("array", R"([{"declarationVersionKey":"3"}])");
  manage("blank", "");
  manage("empty", R"({"declarationVersionKey":"","declarationIdentifierKey":""})");
  manage("full", R"( {"declarationVersionKey":"32","declarationIdentifierKey":"a\/b",)"
                 R"("contentType":"5","hashSHA256":"6","x":[]} )");
  manage("number", R"({"declarationVersionKey":3,"declarationIdentifierKey":null})");
  manage("one", R"({"declarationVersionKey":"3"})");
  manage("tail", R"({"declarationVersionKey":"3"}x)");
  manage("two", R"({"declarationVersionKey":"3"})");
  fs::create_directory(root() / "without");
  std::string found;
  const auto list = [&] {
    for (const Service& service : framework->services()) {
      found += service.type;
      for (const auto& value : {service.declarationVersion, service.declarationIdentifier,
                                service.contentType, service.hashSHA256})
        found += " " + value.value_or("-");
      found += "\n";
    }
  };
  EXPECT_EQ(report(list, "^error"), R"(done
error GetPersistedData: JSON deserialzation internal error: ...
error GetPersistedData: JSON deserialzation internal error: ...
error GetPersistedData: Getting system state for $/root/without failed with error: Internal Error)");
  EXPECT_EQ(found, "empty   - -\nfull 32 a/b 5 6\nnumber - - - -\none 3 - - -\ntwo 3 - - -\n");
  EXPECT_EQ(framework->getDeclarationVersionKeys(), (std::vector<std::string>{"", "32", "3", "3"}));
  EXPECT_EQ(framework->findServiceType("3"), "one");
  EXPECT_EQ(report([&] { framework->findServiceType(" 3"); }, "^post"),
            "Managed service not found for  3");
}

}  // namespace larkspur::test
