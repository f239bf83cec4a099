// SPDX-License-Identifier: Apache-2.0
// Repaired text is UTF-8, and text that needs no repair comes back as it was.
#include <cstdint>
#include <cstdlib>

#include "foundation/utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string repaired = larkspur::repairedUTF8(bytes);
  if (!larkspur::isUTF8(repaired)) std::abort();
  if (larkspur::isUTF8(bytes) != (repaired == bytes)) std::abort();
  if (repaired.empty() != bytes.empty() || repaired.size() > 3 * size) std::abort();
  return 0;
}
