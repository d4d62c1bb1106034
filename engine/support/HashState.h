#pragma once

#include <xxhash.h>

#include <memory>
#include <new>

namespace kestrel::engine {

// An XXH3 streaming state that frees itself.
struct FreeHashState {
    void operator()(XXH3_state_t* s) const { XXH3_freeState(s); }
};
using HashState = std::unique_ptr<XXH3_state_t, FreeHashState>;

// A fresh state; throws std::bad_alloc when there is no memory for one.
inline HashState newHashState() {
    HashState state(XXH3_createState());
    if (!state)
        throw std::bad_alloc();
    return state;
}

} // namespace kestrel::engine
