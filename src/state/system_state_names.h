// SPDX-License-Identifier: Apache-2.0
// The names on disk that the writer and the reader of the system state record share.
//
// The record of a service is one flat JSON object, compact and in UTF-8, kept as an extended
// attribute of the service's directory itself. It has exactly the four members below, all texts.
// There is no version number in it: these names are its format.
#pragma once

namespace larkspur::system_state {

inline constexpr char kAttributeName[] = "Larkspur";

inline constexpr char kDeclarationVersionKey[] = "declarationVersionKey";
inline constexpr char kDeclarationIdentifierKey[] = "declarationIdentifierKey";
inline constexpr char kContentType[] = "contentType";
inline constexpr char kHashSHA256[] = "hashSHA256";

}  // namespace larkspur::system_state
