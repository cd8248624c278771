#include <cstddef>
#include <cstdint>
#include "tbuffer.h"
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { (void)data; (void)size; return 0; }
