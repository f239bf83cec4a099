// SPDX-License-Identifier: Apache-2.0
// The facade: installs, updates, looks up and deletes the configuration trees of managed services.
//
// The life of a service tree, below a managed root:
//
// clang-format off
//   archive     --installArchive-->  <root>/<serviceType>             the tree, 0755 and 0444
//                                    ... with its record              an extended attribute
//                                    <root>/._saved/<serviceType>     a copy of the archive, 0444
//   archive'    --installArchive-->  the same three, replaced whole   update: same declaration
//   archive''   --installArchive-->  the old service type is deleted, rename: same declaration,
//               (other service type) the new one installed            another service type
//   bad archive --installArchive-->  no tree and no record, an earlier good one gone
//   version key --deleteService--->  nothing
// clang-format on
//
// Each change is announced as "kLarkspurChanged_" followed by the service type, and counted.
// A step that is done stays done: no failure is rolled back, and the next successful install of
// the service brings tree, record and saved copy together again.
//
// Thread rule: an operation runs on its caller's thread and takes no lock. Operations on one
// service must not overlap; the caller serialises them. `createFramework` must not overlap itself.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <larkspur/export.h>
#include <larkspur/file_url.h>
#include <larkspur/larkspur_error.h>
#include <larkspur/service.h>

namespace larkspur {

class Logger;
class NotificationCenter;

/// One managed root and the operations on it. Unless a public operation says otherwise it throws
/// `LarkspurError`, and `internalError` without touching anything while the object is not ready
/// (see `isDefaultPathExists` and `isDarwinNotifCenterSuccess`).
class LARKSPUR_EXPORT LarkspurFramework {
 public:
  /// The path of the managed root for objects made from now on; one per process.
  /// "/private/var/db/Larkspur" until `createFramework` overwrites it.
  static std::string& larkspurPath();

  /// The content types that `installArchive` accepts: "application/zip" alone.
  static const std::vector<std::string>& supportedContentTypes();

  /// Makes a ready object for the root at `path`, which must be absolute. A missing root is made,
  /// with its parents, all 0755 whatever the umask. Throws nothing: a root that cannot be made
  /// ends the process with `exit(-1)`, a path that is no location aborts it, and a missing
  /// notification center leaves an object that is not ready.
  static std::unique_ptr<LarkspurFramework> createFramework(const std::string& path);

  /// Where the managed root is; absent only if a client made it so, which aborts the process at
  /// the next operation that needs it.
  virtual const std::optional<FileURL>& larkspurPathURL() const;
  virtual void setLarkspurPathURL(std::optional<FileURL> url);  ///< Replaces it.
  virtual std::optional<FileURL>& modifyLarkspurPathURL();      ///< Gives it for change in place.

  /// Whether start-up found a notification center.
  virtual bool isDarwinNotifCenterSuccess() const;
  virtual void setIsDarwinNotifCenterSuccess(bool success);  ///< Replaces it.
  virtual bool& modifyIsDarwinNotifCenterSuccess();          ///< Gives it for change in place.

  /// Whether start-up found the root, or `createFramework` made it.
  virtual bool isDefaultPathExists() const;
  virtual void setIsDefaultPathExists(bool exists);  ///< Replaces it.
  virtual bool& modifyIsDefaultPathExists();         ///< Gives it for change in place.

  /// Makes an object for the root at `larkspurPath()`. Throws nothing and makes nothing on disk:
  /// what is missing clears the flag that says so, and a path that is no location aborts. Clients
  /// call `createFramework`.
  LarkspurFramework();
  virtual ~LarkspurFramework();
  LarkspurFramework(const LarkspurFramework&) = delete;
  LarkspurFramework& operator=(const LarkspurFramework&) = delete;

  /// Installs or updates a service from a zip archive.
  ///
  /// `serviceType` names the service and, unchanged, its directory: a client that does not control
  /// it checks it first. `contentType` must be "application/zip" to the letter. The keys and
  /// `hashSHA256` are recorded as given. `force` skips the check for a rename or for another
  /// declaration's service.
  ///
  /// Effect: services of the same declaration under another type are deleted, the tree is swapped
  /// in whole, the change announced, the record written, the saved copy replaced, all of it flushed
  /// to the disk, and an analytics event sent, in that order. After a return without an error tree,
  /// record and saved copy survive a power cut; at every moment the tree is whole, old or new.
  ///
  /// Throws, with what is on disk then:
  /// - `invalidMIMEType`, `reservedServiceType`: everything as before; with every error below,
  ///   renamed services may be gone already;
  /// - `updateServiceFailed`, when the service belongs to another declaration: its tree, record and
  ///   saved copy are as before;
  /// - `unzipFailed`, `symbolicLinksNotAllowed`: the service's directory is gone, also an earlier
  ///   good version; the saved copy is as before;
  /// - `unexpectedError`: the service's directory is as the failed extraction left it, old or
  ///   empty and never a mixture;
  /// - `internalError`: the service is at the step that failed: not touched, its directory gone,
  ///   new tree without a record, new tree and record without a whole saved copy, or all in place
  ///   and only not flushed, or the event not sent;
  /// - `symbolicLinksNotAllowed` for an archive that is itself a link: new tree and record, the
  ///   link as saved copy;
  /// - `std::system_error`, from the modes of the saved copy or the size of the archive: all is in
  ///   place, only the count was not sent.
  virtual void installArchive(const std::string& serviceType, const FileURL& archiveURL,
                              const std::string& contentType,
                              const std::string& declarationVersionKey,
                              const std::string& declarationIdentifierKey,
                              const std::string& hashSHA256, bool force);

  /// Deletes the first service that the version key `declarationVersionKey` installed: its tree
  /// with the record, announced, then its saved copy, then an analytics event. After a return
  /// without an error a power cut brings nothing of it back.
  /// Throws `serviceNotFound` with everything as before, or `internalError` at the step that
  /// failed: the tree there, the tree gone and the saved copy there, or both gone and only not
  /// flushed, or the event not sent. Each is there whole or not at all.
  virtual void deleteService(const std::string& declarationVersionKey);

  /// The version keys of all services, one per readable record, repeats included, in the order
  /// of the directory. Throws `internalError` when the root cannot be listed. Changes nothing.
  virtual std::vector<std::string> getDeclarationVersionKeys();

  /// Where the tree of `serviceType` is or would be. Looks at nothing, and needs no readiness.
  virtual FileURL servicePathURL(const std::string& serviceType);

  /// The service type of the first service that `declarationVersionKey` installed, by exact text.
  /// Throws `serviceNotFound` with the key, or `internalError` when the root cannot be listed.
  /// Changes nothing.
  virtual std::string findServiceType(const std::string& declarationVersionKey);

  // What follows is not virtual, so that the operation table stays as it is.

  /// `installArchive` with its arguments by name; calls the virtual one. A class that overrides
  /// that one hides this one, unless it says `using LarkspurFramework::installArchive`.
  void installArchive(const Installation& installation);

  /// Unpacks the archive into scratch space as an install does and removes the scratch space, so
  /// that a client that calls it first loses no tree to a bad archive. Touches no service and
  /// announces nothing. Throws `unzipFailed` or `symbolicLinksNotAllowed` where an install would,
  /// `internalError` for any other failure.
  void checkArchive(const FileURL& archiveURL);

  /// The services with a readable record, in the order of the directory. Throws `internalError`
  /// when the root cannot be listed. Changes nothing.
  std::vector<Service> services();

 protected:
  // The steps that the operations above are made of, in the order of the operation table.

  /// Unpacks the archive as `<root>/<serviceType>` and announces it.
  virtual void addOrUpdateService(const std::string& serviceType, const FileURL& archiveURL);
  /// Removes `<root>/<serviceType>` and announces it; `internalError` when there is none.
  virtual void removeServiceDirectory(const std::string& serviceType);
  /// Replaces `<root>/._saved/<serviceType>` by a directory that holds a read-only copy.
  virtual void saveServiceCopy(const std::string& serviceType, const FileURL& archiveURL);
  /// Removes `<root>/._saved/<serviceType>`, if there is one.
  virtual void deleteSavedDirectory(const std::string& serviceType);
  /// Removes one item, with everything inside; `internalError` when it cannot.
  virtual void removeItem(const FileURL& url);
  /// The entries directly under the root, hidden ones included, in the order of the directory.
  virtual std::vector<FileURL> scanDirectory();
  /// Deletes services that were renamed, then refuses one of another declaration.
  virtual void checkUpdateScenario(const std::string& serviceType,
                                   const std::string& declarationIdentifierKey, bool force);

 private:
  const FileURL& root() const;
  FileURL savedCopyURL(const std::string& serviceType) const;
  void requireReadiness() const;
  void makeDirectory(const FileURL& url, bool withParents) const;
  void requireSupportedContentType(const std::string& contentType) const;
  void deleteRenamedServices(const std::string& serviceType,
                             const std::string& declarationIdentifierKey);
  void refuseOtherDeclaration(const std::string& serviceType,
                              const std::string& declarationIdentifierKey) const;
  void announceChange(const std::string& name) const;
  std::int64_t numberOfManagedServices();
  void flush() const;

  std::shared_ptr<NotificationCenter> darwin_;
  std::unique_ptr<const Logger> logger_;
  std::optional<FileURL> larkspurPathURL_;
  bool isDarwinNotifCenterSuccess_ = true;
  bool isDefaultPathExists_ = true;
};

}  // namespace larkspur
