// One libFuzzer target: KESTREL_FUZZ_TARGET names its entry point.
#include "FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return kestrel::fuzz::KESTREL_FUZZ_TARGET(data, size);
}
