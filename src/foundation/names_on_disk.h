// SPDX-License-Identifier: Apache-2.0
// Every name that Larkspur writes to disk. They are the on-disk format.
//
// The record of a service is one flat JSON object, compact and in UTF-8, stored as an extended
// attribute of the service's directory. It has exactly the four members below, all strings, and no
// version number.
#pragma once

namespace larkspur::on_disk {

inline constexpr char kRecordAttribute[] = "Larkspur";
inline constexpr char kDeclarationVersionKey[] = "declarationVersionKey";
inline constexpr char kDeclarationIdentifierKey[] = "declarationIdentifierKey";
inline constexpr char kContentType[] = "contentType";
inline constexpr char kHashSHA256[] = "hashSHA256";

/// Under the root: one directory per service, with a copy of its last archive. The leading dot
/// hides it from ordinary listings, but not from a scan of the root.
inline constexpr char kSavedDirectory[] = "._saved";

/// A scratch directory: this prefix and six random letters or digits.
inline constexpr char kScratchPrefix[] = "larkspur-";
/// A staging directory, hidden beside the item being replaced or removed: the same.
inline constexpr char kStagingPrefix[] = ".larkspur-";
/// The tree inside a staging directory.
inline constexpr char kStagedTree[] = "tree";
/// The old tree inside a staging directory, where the file system cannot exchange two items.
inline constexpr char kBackup[] = "tmp";

}  // namespace larkspur::on_disk
