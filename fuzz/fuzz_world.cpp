// The whole tool on any bytes. The first byte chooses the options: bit 0 -l,
// bit 1 --vrml97, bit 2 a gzip-compressed output; the rest is the world. Every
// input must end, in bounded time and memory, with a status of 1 or -3, and a
// run must leave nothing behind.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "pareworld.h"

// Well under the fuzzer's limit of resident memory, with the sanitizers'
// own share on top: a world that outgrows it stops in order.
constexpr size_t kMemoryLimit = size_t(256) << 20;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  PareOptions options = {data[0] & 1, (data[0] >> 1) & 1, (data[0] >> 2) & 1, "in.wrl", 0,
                         kMemoryLimit};
  PareResult result;
  pareWorld(reinterpret_cast<const char*>(data + 1), size - 1, &options, &result);
  if (result.status != 1 && result.status != -3) abort();
  if ((result.output != nullptr) != (result.status == 1)) abort();
  releasePareResult(&result);
  return 0;
}
