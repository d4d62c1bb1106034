#include "Memory.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace kestrel::engine {

void releaseFreedMemory() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace kestrel::engine
