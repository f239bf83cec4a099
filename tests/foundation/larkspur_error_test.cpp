// SPDX-License-Identifier: Apache-2.0
// Messages and codes, case by case.
#include <gtest/gtest.h>
#include <larkspur/larkspur_error.h>

namespace larkspur::test {

TEST(LarkspurErrorTest, MessagesAndCodes) {
  const std::pair<LarkspurError, const char*> rows[] = {
      {LarkspurError::invalidMIMEType("text/plain"), "MIME type text/plain is not supported"},
      {LarkspurError::serviceNotFound("2.1"), "Managed service not found for 2.1"},
      {LarkspurError::updateServiceFailed(),
       "Failed updating service in managed service directory"},
      {LarkspurError::unzipFailed(), "Failed unzip of managed configuration file"},
      {LarkspurError::reservedServiceType(), "Service type prefix is reserved"},
      {LarkspurError::symbolicLinksNotAllowed(),
       "Larkspur does not support symbolic links in zip archives"},
      {LarkspurError::internalError(), "Internal Error"},
      {LarkspurError::unexpectedError(), "Fatal: this shouldn't happen"}};
  int code = 0;
  for (const auto& [error, message] : rows) {
    const LarkspurError copy = error;
    EXPECT_EQ(copy.description(), message);
    EXPECT_STREQ(copy.what(), message);
    EXPECT_EQ(copy.code(), code++);
    EXPECT_EQ(copy.payload(), code == 1 ? "text/plain" : code == 2 ? "2.1" : "");
  }
  EXPECT_STREQ(LarkspurError::domain(), "Larkspur.LarkspurError");
  EXPECT_EQ(LarkspurError::invalidMIMEType("").description(), "MIME type  is not supported");
  const std::string zero("a\0b", 3);
  EXPECT_EQ(LarkspurError::serviceNotFound(zero).description(),
            "Managed service not found for " + zero);
  EXPECT_EQ(LarkspurError::serviceNotFound("").description(), "Managed service not found for ");
}

}  // namespace larkspur::test
