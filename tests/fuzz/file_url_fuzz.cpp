// SPDX-License-Identifier: Apache-2.0
// A location and its text say the same, whichever of the two came first.
#include <cstdint>
#include <cstdlib>

#include <larkspur/file_url.h>

using larkspur::FileURL;

namespace {

void expectRoundTrip(const FileURL& url) {
  const auto again = FileURL::parse(url.absoluteString());
  if (!again || !(*again == url)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const auto parsed = FileURL::parse(text)) {
    if (!parsed->path().starts_with('/')) std::abort();
    expectRoundTrip(*parsed);
  }
  const FileURL made(text);
  expectRoundTrip(made);

  const FileURL below = FileURL("/root").appendingPathComponent(text);
  if (!below.path().starts_with("/root/")) std::abort();
  if (!text.empty() && text.find('/') == std::string::npos && below.lastPathComponent() != text) {
    std::abort();
  }
  return 0;
}
