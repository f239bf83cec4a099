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
// Each change is announced as "kLarkspurChanged_" followed by the service type, and counted. No
// failure is rolled back, and the next successful install of the service sets tree, record and
// saved copy right.
//
// What is atomic: at every moment, also after a kill, a service's directory holds the whole old
// tree, the whole new one or nothing (or is empty, before a first install), and never the record of
// another archive than its tree's. What is durable: once `installArchive` or `deleteService`
// returns without an error, its result survives a power cut on ext4, xfs and btrfs.
//
// Thread rule: an operation runs on its caller's thread and takes no lock. Operations on different
// services, and lookups, may overlap, in threads and in processes. Operations on one service must
// not; an install counts as an operation on each service of its declaration. Nothing may overlap
// `createFramework` in the same process.
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
/// `LarkspurError`: `internalError`, with nothing touched, if the object is not ready (see
/// `isDefaultPathExists` and `isDarwinNotifCenterSuccess`).
///
/// Limits:
/// - A service type is used unchanged as the name of a directory. A client that does not control it
///   must refuse "", ".", "..", "._saved" and anything with a slash. Types that begin with
///   "com.corvid." are reserved, except for nine: "com.corvid." and "webserver", "accessrules",
///   "shell", "smartcards", "printing", "authmodules", "remotelogin", "superuser" or "altshell".
/// - An archive is a plain file, not a link, and not the service's own saved copy: that is deleted
///   before it is copied. To the unzip tool `[`, `*`, `?` and a backslash in its name are a
///   pattern, and a missing `svc` means `svc.zip`.
/// - The unzip tool drops control characters in the names of entries, and unpacks `../x` as `x`.
/// - The tool inherits standard input, and asks there what to do when the disk is full.
/// - A record needs a file system with user attributes; ext4 has about 4,000 bytes for it.
/// - A record that something else wrote is unreadable if it nests deeper than 512 levels, or holds
///   half a surrogate pair or an exponent beyond 32 bits.
/// - On an overlay file system the first update of a tree that came with the image fails with
///   `internalError` and leaves no tree; the next install works.
/// - A failed install leaves its scratch directory, `larkspur-` and six characters, mode 0700.
class LARKSPUR_EXPORT LarkspurFramework {
 public:
  /// The path of the managed root for objects made from now on; one per process.
  /// "/private/var/db/Larkspur" until `createFramework` overwrites it.
  static std::string& larkspurPath();

  /// The content types that `installArchive` accepts: "application/zip" alone.
  static const std::vector<std::string>& supportedContentTypes();

  /// Makes an object for the root at `path`, which must be absolute. A missing root is made, with
  /// its parents, all 0755 whatever the umask. Throws nothing: a root that cannot be made ends the
  /// process with `exit(-1)`, a path that is not a location (relative, or not UTF-8) aborts it. The
  /// object is ready unless there is no notification center; see `isDarwinNotifCenterSuccess`.
  static std::unique_ptr<LarkspurFramework> createFramework(const std::string& path);

  /// Where the managed root is. Absent only if a client made it so; the next operation that needs
  /// it then aborts the process.
  virtual const std::optional<FileURL>& larkspurPathURL() const;
  virtual void setLarkspurPathURL(std::optional<FileURL> url);  ///< Replaces it.
  virtual std::optional<FileURL>& modifyLarkspurPathURL();      ///< Mutable access.

  /// Whether start-up found a notification center.
  virtual bool isDarwinNotifCenterSuccess() const;
  virtual void setIsDarwinNotifCenterSuccess(bool success);  ///< Replaces it.
  virtual bool& modifyIsDarwinNotifCenterSuccess();          ///< Mutable access.

  /// Whether start-up found the root, or `createFramework` made it.
  virtual bool isDefaultPathExists() const;
  virtual void setIsDefaultPathExists(bool exists);  ///< Replaces it.
  virtual bool& modifyIsDefaultPathExists();         ///< Mutable access.

  /// Makes an object for the root at `larkspurPath()`, for subclasses; clients call
  /// `createFramework`. Throws nothing and makes nothing on disk: a missing root or notification
  /// center clears its flag, and a path that is not a location aborts.
  LarkspurFramework();
  virtual ~LarkspurFramework();
  LarkspurFramework(const LarkspurFramework&) = delete;
  LarkspurFramework& operator=(const LarkspurFramework&) = delete;

  /// Installs or updates a service from a zip archive.
  ///
  /// `contentType` must be "application/zip" exactly. The keys and `hashSHA256` are recorded
  /// unchanged and unchecked. `force` skips the checks for a rename and for a service of another
  /// declaration.
  ///
  /// Effect: services of the same declaration under another type are deleted, the tree is replaced
  /// in one step, the change announced, the record written, the saved copy replaced, everything
  /// flushed to the disk, and an analytics event sent, in that order.
  ///
  /// Throws, with this on disk:
  /// - `invalidMIMEType`, `reservedServiceType`: everything as before. After any error below,
  ///   renamed services may be gone already;
  /// - `updateServiceFailed`, if the service belongs to another declaration: its tree, record and
  ///   saved copy are as before;
  /// - `unzipFailed`, `symbolicLinksNotAllowed`: the service's directory is gone, even if it held a
  ///   good version; the saved copy is as before. call `checkArchive` first;
  /// - `symbolicLinksNotAllowed` for an archive that is itself a link: new tree and record, and the
  ///   link as saved copy;
  /// - `unexpectedError`, if a system call failed in the middle of the extraction; the archive is
  ///   not to blame. The service's directory holds the old tree, or is empty;
  /// - `internalError`: the service is as the step that failed found it: not touched, its directory
  ///   gone, new tree without a record, new tree and record without a whole saved copy, or
  ///   everything in place but perhaps not flushed, and the event not sent;
  /// - `std::system_error`, from the modes of the saved copy or the size of the archive: everything
  ///   in place but perhaps not flushed, and the event not sent.
  virtual void installArchive(const std::string& serviceType, const FileURL& archiveURL,
                              const std::string& contentType,
                              const std::string& declarationVersionKey,
                              const std::string& declarationIdentifierKey,
                              const std::string& hashSHA256, bool force);

  /// Deletes the first service that the version key `declarationVersionKey` installed: its tree
  /// with the record, announced, then its saved copy; flushes, then sends an analytics event.
  /// Throws `serviceNotFound` with everything as before, or `internalError` with the service as the
  /// step that failed found it: everything there, the tree gone and the saved copy there, or
  /// everything gone but perhaps not flushed, and the event not sent. Something mounted inside the
  /// tree, an immutable file or a directory that may not be changed refuse the deletion with
  /// nothing removed.
  virtual void deleteService(const std::string& declarationVersionKey);

  /// The version keys of all services, one per readable record, repeats included, in the order
  /// of the directory. Throws `internalError` when the root cannot be listed. Changes nothing.
  virtual std::vector<std::string> getDeclarationVersionKeys();

  /// Where the tree of `serviceType` is or would be. Does not touch the disk, and works if the
  /// object is not ready.
  virtual FileURL servicePathURL(const std::string& serviceType);

  /// The service type of the first service that `declarationVersionKey`, compared byte by byte,
  /// installed.
  /// Throws `serviceNotFound` with the key, or `internalError` when the root cannot be listed.
  /// Changes nothing.
  virtual std::string findServiceType(const std::string& declarationVersionKey);

  // Not virtual from here on, so the operation table stays as it is.

  /// `installArchive` with its arguments by name; calls the virtual one. A class that overrides
  /// the virtual one hides this one, unless it declares `using LarkspurFramework::installArchive`.
  void installArchive(const Installation& installation);

  /// Unpacks the archive into a scratch directory as an install does, and removes that directory.
  /// Call it first, and no bad archive costs a service its tree. Touches no service and announces
  /// nothing. Throws `unzipFailed` or `symbolicLinksNotAllowed` if an install would, and
  /// `internalError` for any other failure.
  void checkArchive(const FileURL& archiveURL);

  /// The services with a readable record, in the order of the directory. Throws `internalError`
  /// when the root cannot be listed. Changes nothing.
  std::vector<Service> services();

 protected:
  // The steps of the operations above, in the order of the operation table.

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
