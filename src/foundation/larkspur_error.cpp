// SPDX-License-Identifier: Apache-2.0
// The messages of the eight cases.
#include <larkspur/larkspur_error.h>

#include <utility>

namespace larkspur {

// Shared by all copies: copying an exception must not throw.
struct LarkspurError::Strings {
  std::string payload;
  std::string message;
};

LarkspurError::LarkspurError(Case which, std::shared_ptr<const Strings> strings) noexcept
    : case_(which), strings_(std::move(strings)) {}

LarkspurError::LarkspurError(const LarkspurError& other) noexcept = default;
LarkspurError& LarkspurError::operator=(const LarkspurError& other) noexcept = default;
LarkspurError::~LarkspurError() = default;

LarkspurError LarkspurError::invalidMIMEType(std::string contentType) {
  std::string message = "MIME type " + contentType + " is not supported";
  return {Case::invalidMIMEType,
          std::make_shared<const Strings>(Strings{std::move(contentType), std::move(message)})};
}

LarkspurError LarkspurError::serviceNotFound(std::string searchedFor) {
  std::string message = "Managed service not found for " + searchedFor;
  return {Case::serviceNotFound,
          std::make_shared<const Strings>(Strings{std::move(searchedFor), std::move(message)})};
}

LarkspurError LarkspurError::updateServiceFailed() { return {Case::updateServiceFailed, nullptr}; }
LarkspurError LarkspurError::unzipFailed() { return {Case::unzipFailed, nullptr}; }
LarkspurError LarkspurError::reservedServiceType() { return {Case::reservedServiceType, nullptr}; }
LarkspurError LarkspurError::symbolicLinksNotAllowed() {
  return {Case::symbolicLinksNotAllowed, nullptr};
}
LarkspurError LarkspurError::internalError() { return {Case::internalError, nullptr}; }
LarkspurError LarkspurError::unexpectedError() { return {Case::unexpectedError, nullptr}; }

const std::string& LarkspurError::payload() const noexcept {
  // Never destroyed: code may still use it while the process exits.
  static const std::string& none = *new std::string;  // NOLINT(bugprone-unhandled-exception-at-new)
  return strings_ ? strings_->payload : none;
}

std::string LarkspurError::description() const {
  // Not `what()`, which ends at a zero byte in the payload.
  return strings_ ? strings_->message : what();
}

const char* LarkspurError::what() const noexcept {
  switch (case_) {
    case Case::invalidMIMEType:
    case Case::serviceNotFound:
      return strings_->message.c_str();
    case Case::updateServiceFailed:
      return "Failed updating service in managed service directory";
    case Case::unzipFailed:
      return "Failed unzip of managed configuration file";
    case Case::reservedServiceType:
      return "Service type prefix is reserved";
    case Case::symbolicLinksNotAllowed:
      return "Larkspur does not support symbolic links in zip archives";
    case Case::internalError:
      return "Internal Error";
    case Case::unexpectedError:
      break;
  }
  return "Fatal: this shouldn't happen";
}

const char* LarkspurError::domain() noexcept { return "Larkspur.LarkspurError"; }

}  // namespace larkspur
