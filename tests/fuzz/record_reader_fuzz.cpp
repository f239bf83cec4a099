// SPDX-License-Identifier: Apache-2.0
// Reading any bytes as a record ends in a record, nullopt or an error.
#include <cstdint>
#include <cstdlib>

#include <larkspur/larkspur.h>

#include "foundation/names_on_disk.h"
#include "foundation/utf8.h"
#include "state/larkspur_get_persisted_data.h"

namespace {

class NoLog final : public larkspur::Log {
  bool isEnabled(larkspur::LogLevel) const noexcept override { return false; }
  void write(const larkspur::LogEntry&) noexcept override {}
};

}  // namespace

[[maybe_unused]] const bool isQuiet = (larkspur::useLog(std::make_shared<NoLog>()), true);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto record = larkspur::LarkspurGetPersistedData().deserializeSystemState(text);
    if (!record) return 0;
    const auto value = record->stringForKey(larkspur::on_disk::kDeclarationVersionKey);
    if (value && !larkspur::isUTF8(*value)) std::abort();
  } catch (const larkspur::LarkspurError& error) {
    if (error.kind() != larkspur::LarkspurError::Case::internalError) std::abort();
  }
  return 0;
}
