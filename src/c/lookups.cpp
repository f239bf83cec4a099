// SPDX-License-Identifier: Apache-2.0
// Lookups. Each result is one block of memory, so that the caller frees it with one call.
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <larkspur/larkspur.h>

#include "c/report.h"
#include "c/store.h"
#include "c/text.h"

using namespace larkspur::c;

namespace {

using larkspur::Service;

void* allocated(std::size_t size) {
  void* memory = std::malloc(size);  // NOLINT: C frees it
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

using Text = std::optional<std::string>;

// Null for what cannot be a C string because it contains a zero byte.
const std::string* stringIn(const Text& text) {
  return text && text->find('\0') == std::string::npos ? &*text : nullptr;
}

std::size_t sizeOf(const Text& text) {
  const std::string* string = stringIn(text);
  return string ? string->size() + 1 : 0;
}

// Copies the string to `place` and advances it.
const char* placed(const Text& text, char*& place) {
  const std::string* string = stringIn(text);
  if (!string) return nullptr;
  const char* copy = place;
  std::memcpy(place, string->c_str(), string->size() + 1);
  place += string->size() + 1;
  return copy;
}

// The pointers and their final NULL, then the structs, then the strings.
larkspur_service** listOf(const std::vector<Service>& services) {
  const std::size_t count = services.size();
  std::size_t strings = 0;
  for (const Service& service : services) {
    strings += sizeOf(service.type) + sizeOf(service.declarationVersion) +
               sizeOf(service.declarationIdentifier) + sizeOf(service.contentType) +
               sizeOf(service.hashSHA256);
  }
  const std::size_t pointers = (count + 1) * sizeof(larkspur_service*);
  auto* memory =
      static_cast<char*>(allocated(pointers + count * sizeof(larkspur_service) + strings));
  auto** list = reinterpret_cast<larkspur_service**>(memory);
  auto* structs = reinterpret_cast<larkspur_service*>(memory + pointers);
  char* place = reinterpret_cast<char*>(structs + count);
  for (std::size_t at = 0; at < count; ++at) {
    const Service& service = services[at];
    list[at] = new (&structs[at])
        larkspur_service{placed(service.type, place), placed(service.declarationVersion, place),
                         placed(service.declarationIdentifier, place),
                         placed(service.contentType, place), placed(service.hashSHA256, place)};
  }
  list[count] = nullptr;
  return list;
}

}  // namespace

int larkspur_find(larkspur_store* store, const char* version, char** service_type,
                  larkspur_error* error) {
  if (service_type != nullptr) *service_type = nullptr;
  return reported(error, [&] {
    require(service_type != nullptr, "service_type", " is NULL");
    const std::string type = frameworkOf(store).findServiceType(requireText(version, "version"));
    char* place = static_cast<char*>(allocated(type.size() + 1));
    *service_type = place;
    placed(type, place);
  });
}

int larkspur_services(larkspur_store* store, larkspur_service*** services, larkspur_error* error) {
  if (services != nullptr) *services = nullptr;
  return reported(error, [&] {
    require(services != nullptr, "services", " is NULL");
    *services = listOf(frameworkOf(store).services());
  });
}

void larkspur_free_services(larkspur_service** services) { std::free(services); }  // NOLINT

void larkspur_free(void* memory) { std::free(memory); }  // NOLINT
