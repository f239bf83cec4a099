// SPDX-License-Identifier: Apache-2.0
// Checks and repairs UTF-8 by table 3-7 of the Unicode Standard.
#include "foundation/utf8.h"

namespace larkspur {
namespace {

struct Sequence {
  std::size_t length;  // of the well-formed sequence, or of the maximal ill-formed one
  bool wellFormed;
};

// How many bytes follow a lead byte, and the range of the first of them; the others are 80..BF.
struct Lead {
  std::size_t followers;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xBF;
};

Lead leadOf(unsigned char byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {1};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x80, 0x9F};  // no surrogates
  if (byte >= 0xE1 && byte <= 0xEF) return {2};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte == 0xF4) return {3, 0x80, 0x8F};  // nothing above U+10FFFF
  if (byte >= 0xF1 && byte <= 0xF3) return {3};
  return {0};
}

// `bytes` is not empty.
Sequence firstSequence(std::string_view bytes) {
  const auto first = static_cast<unsigned char>(bytes.front());
  if (first < 0x80) return {1, true};
  Lead lead = leadOf(first);
  if (lead.followers == 0) return {1, false};
  for (std::size_t at = 1; at <= lead.followers; ++at) {
    if (at == bytes.size()) return {at, false};
    const auto follower = static_cast<unsigned char>(bytes[at]);
    if (follower < lead.lowest || follower > lead.highest) return {at, false};
    lead.lowest = 0x80;
    lead.highest = 0xBF;
  }
  return {lead.followers + 1, true};
}

}  // namespace

bool isUTF8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const Sequence sequence = firstSequence(bytes);
    if (!sequence.wellFormed) return false;
    bytes.remove_prefix(sequence.length);
  }
  return true;
}

std::string repairedUTF8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Sequence sequence = firstSequence(bytes);
    text += sequence.wellFormed ? bytes.substr(0, sequence.length) : "\xEF\xBF\xBD";
    bytes.remove_prefix(sequence.length);
  }
  return text;
}

}  // namespace larkspur
