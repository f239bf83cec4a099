/* SPDX-License-Identifier: Apache-2.0 */
/** @file
   The C interface: the same operations as LarkspurFramework, for every language that can call C.

   A call returns LARKSPUR_OK or the code of its failure, and fills in the larkspur_error that the
   caller passes, also after a success. Nothing throws, exits or aborts through this interface.

   Strings are zero-terminated bytes. Those that the caller passes are UTF-8, except `archive`;
   names from the file system are its bytes as they are. The library copies what it keeps. A NULL
   where none is allowed, or a string that this page does not allow, is LARKSPUR_BAD_ARGUMENT, and
   nothing was touched.

   Thread rule: larkspur_open, larkspur_close and larkspur_use_hooks may be called from any thread
   and wait for each other. Calls on one store may overlap as long as they work on different
   services; so may calls on stores of different roots. No thread may be cancelled inside a call.
   Where a program uses the C++ interface too, none of its operations may run during
   larkspur_open and larkspur_use_hooks: they change what is one per process. */
#pragma once

#include <stddef.h>

#include <larkspur/export.h>
#include <larkspur/version.h>

LARKSPUR_BEGIN_C
/* NOLINTBEGIN(modernize-use-using): C has no other */

/** One managed root that was opened. */
typedef struct larkspur_store larkspur_store;

/** The codes. 1 to 8 are the cases of larkspur::LarkspurError, each one higher than its code. */
enum {
  LARKSPUR_OK = 0,                         /**< Done. */
  LARKSPUR_INVALID_MIME_TYPE = 1,          /**< The content type is not application/zip. */
  LARKSPUR_SERVICE_NOT_FOUND = 2,          /**< No installed service matches. */
  LARKSPUR_UPDATE_SERVICE_FAILED = 3,      /**< The service belongs to another declaration. */
  LARKSPUR_UNZIP_FAILED = 4,               /**< The archive could not be unpacked. */
  LARKSPUR_RESERVED_SERVICE_TYPE = 5,      /**< The service type uses a reserved prefix. */
  LARKSPUR_SYMBOLIC_LINKS_NOT_ALLOWED = 6, /**< The archive holds a symbolic link. */
  LARKSPUR_INTERNAL_ERROR = 7,             /**< Disk or record failed; see `detail`. */
  LARKSPUR_UNEXPECTED_ERROR = 8,           /**< A system call failed in an extraction. */
  LARKSPUR_BAD_ARGUMENT = 32,              /**< The caller's mistake; `message` names it. */
  LARKSPUR_NOT_READY = 33,                 /**< No notification center, or the root vanished. */
  LARKSPUR_SYSTEM_ERROR = 34,              /**< The system failed; see `system_errno`. */
  LARKSPUR_NO_MEMORY = 35                  /**< Out of memory. */
};

/** What a call reports. Belongs to the caller; need not be initialised. */
typedef struct {
  int code;          /**< What the call returned. */
  int system_errno;  /**< With LARKSPUR_SYSTEM_ERROR the system's error number, otherwise 0. */
  char message[256]; /**< The failure in one sentence; empty after a success. */
  /** The error lines that the call logged on its thread, separated by line feeds: the latest ones
      if not all fit, and a longer one up to the end of a character. They go to the log as well. */
  char detail[1024];
} larkspur_error;

/** The version of the library in use, for instance "1.0.0". */
LARKSPUR_EXPORT const char* larkspur_version(void);

/** The levels of log lines. */
enum { LARKSPUR_LOG_ERROR = 0, LARKSPUR_LOG_INFO = 1, LARKSPUR_LOG_DEBUG = 2 };

/** A log, notification center and analytics service of the caller. A NULL function means the
   system's own. The functions are called on the threads that call the library, possibly on several
   at once; their strings are valid during the call only. They must return soon, must not call this
   interface, and no exception and no longjmp may leave them. */
typedef struct {
  size_t size;   /**< sizeof(larkspur_hooks). */
  void* context; /**< Passed to each function. */
  /** Takes one log line. */
  void (*log)(void* context, int level, const char* category, const char* message);
  /** Announces a change; `name` is "kLarkspurChanged_" and the service type. */
  void (*change)(void* context, const char* name);
  /** Takes one analytics event: `service_type` is "Other" for types outside the reserved prefix,
      `enabled` is 1 after an install and 0 after a deletion, `size` is that of the archive in
      bytes, to the nearest 10. */
  void (*event)(void* context, const char* service_type, int enabled, long long size,
                long long number_of_managed_services);
  int log_level; /**< The most detailed level wanted, in `log` or the system's log. */
} larkspur_hooks;

/** Sets the hooks for the whole process, also for its C++ callers; the struct is copied.
    LARKSPUR_BAD_ARGUMENT while a store is open, or when `size` is smaller than the first version
    of the struct. Further members of a longer struct are ignored. */
LARKSPUR_EXPORT int larkspur_use_hooks(const larkspur_hooks* hooks, larkspur_error* error);

/** Opens the managed root at the absolute path `root`. A missing root is made with its parents, all
    0755 whatever the umask. Any number of stores may be open, also several of one root.
    LARKSPUR_NOT_READY when there is no notification center: without a system bus, set
    larkspur_hooks.change and open again. LARKSPUR_SYSTEM_ERROR when the root cannot be made or is
    not a directory. On failure `*store` is NULL. */
LARKSPUR_EXPORT int larkspur_open(const char* root, larkspur_store** store, larkspur_error* error);

/** Closes the store; NULL is allowed. No call on it may be under way. */
LARKSPUR_EXPORT void larkspur_close(larkspur_store* store);

/** Unpacks the archive into scratch space as larkspur_install does, and removes the scratch space.
    No service is touched. LARKSPUR_UNZIP_FAILED, LARKSPUR_SYMBOLIC_LINKS_NOT_ALLOWED or
    LARKSPUR_INTERNAL_ERROR. */
LARKSPUR_EXPORT int larkspur_check_archive(larkspur_store* store, const char* archive,
                                           larkspur_error* error);

/** What to install. Zero the struct, then set `size` and the members by name. */
typedef struct {
  size_t size; /**< sizeof(larkspur_install_options). */
  /** Names the service and, unchanged, its directory below the root. Not empty, at most 255 bytes,
      without a slash, and none of ".", "..", "._saved" and names that begin with ".larkspur-". */
  const char* service_type;
  const char* archive;      /**< The path of the zip archive. */
  const char* version;      /**< The declaration's version key. */
  const char* identifier;   /**< The declaration's identifier key. */
  const char* sha256;       /**< The digest of the archive; recorded, not verified. */
  const char* content_type; /**< NULL: application/zip, the one type that is accepted. */
  int force;                /**< Not 0: no check for a rename or another declaration's service. */
} larkspur_install_options;

/** Installs or updates a service; see LarkspurFramework::installArchive for what is on disk after
    each failure. `size` works as in larkspur_use_hooks. */
LARKSPUR_EXPORT int larkspur_install(larkspur_store* store, const larkspur_install_options* options,
                                     larkspur_error* error);

/** Deletes the first service that `version` installed. LARKSPUR_SERVICE_NOT_FOUND with everything
    as before. */
LARKSPUR_EXPORT int larkspur_delete(larkspur_store* store, const char* version,
                                    larkspur_error* error);

/** Stores the type of the first service that `version` installed; free it with larkspur_free. On
    failure `*service_type` is NULL. */
LARKSPUR_EXPORT int larkspur_find(larkspur_store* store, const char* version, char** service_type,
                                  larkspur_error* error);

/** One service. A member other than `type` is NULL when the record has no such string, or one with
   a zero byte inside. */
typedef struct {
  const char* type;         /**< The service type: the name of its tree below the root. */
  const char* version;      /**< The declaration's version key. */
  const char* identifier;   /**< The declaration's identifier key. */
  const char* content_type; /**< The content type. */
  const char* sha256;       /**< The digest of the archive. */
} larkspur_service;

/** Stores the services with a readable record, in the order of the directory, as an array of
    pointers that ends with NULL; free it with larkspur_free_services. On failure `*services` is
    NULL. */
LARKSPUR_EXPORT int larkspur_services(larkspur_store* store, larkspur_service*** services,
                                      larkspur_error* error);

/** Frees a list of larkspur_services; NULL is allowed. */
LARKSPUR_EXPORT void larkspur_free_services(larkspur_service** services);

/** Frees a string of larkspur_find; NULL is allowed. */
LARKSPUR_EXPORT void larkspur_free(void* memory);

/* NOLINTEND(modernize-use-using) */
LARKSPUR_END_C
