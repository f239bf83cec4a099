// SPDX-License-Identifier: Apache-2.0
// The one error type of the library: eight cases, two of them with a string.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include <larkspur/export.h>

namespace larkspur {

/// Why an operation failed. A value: copies share their strings, copying cannot throw, and any
/// number of threads may read one. Operations throw nothing else, except `std::system_error` from
/// `LarkspurFramework::installArchive`.
class LARKSPUR_EXPORT LarkspurError : public std::exception {
 public:
  /// The cases, in the order of their codes.
  enum class Case : int {
    invalidMIMEType = 0,          ///< The content type is not one the library accepts.
    serviceNotFound = 1,          ///< No installed service matches.
    updateServiceFailed = 2,      ///< The service belongs to another declaration.
    unzipFailed = 3,              ///< The archive could not be unpacked.
    reservedServiceType = 4,      ///< The service type uses a reserved prefix.
    symbolicLinksNotAllowed = 5,  ///< The archive holds a symbolic link.
    internalError = 6,            ///< Disk, record or start-up failed; the log has the cause.
    unexpectedError = 7,          ///< A system call failed in the middle of an extraction.
  };

  /// `contentType` is the content type that was offered.
  static LarkspurError invalidMIMEType(std::string contentType);
  /// `searchedFor` is the value that the lookup searched for.
  static LarkspurError serviceNotFound(std::string searchedFor);
  static LarkspurError updateServiceFailed();      ///< See Case::updateServiceFailed.
  static LarkspurError unzipFailed();              ///< See Case::unzipFailed.
  static LarkspurError reservedServiceType();      ///< See Case::reservedServiceType.
  static LarkspurError symbolicLinksNotAllowed();  ///< See Case::symbolicLinksNotAllowed.
  static LarkspurError internalError();            ///< See Case::internalError.
  static LarkspurError unexpectedError();          ///< See Case::unexpectedError.

  LarkspurError(const LarkspurError& other) noexcept;             ///< Shares the strings.
  LarkspurError& operator=(const LarkspurError& other) noexcept;  ///< Shares the strings.
  ~LarkspurError() override;

  /// Which of the eight it is.
  Case kind() const noexcept { return case_; }

  /// The content type or the value searched for; empty for the other six cases.
  const std::string& payload() const noexcept;

  /// The message, for people.
  std::string description() const;

  /// The message; lives as long as the error or any copy of it.
  const char* what() const noexcept override;

  /// The domain of `code`: "Larkspur.LarkspurError".
  static const char* domain() noexcept;

  /// The number of the case within the domain. Case 0 is a failure like the others.
  int code() const noexcept { return static_cast<int>(case_); }

 private:
  struct Strings;
  LarkspurError(Case which, std::shared_ptr<const Strings> strings) noexcept;

  Case case_;
  std::shared_ptr<const Strings> strings_;
};

}  // namespace larkspur
