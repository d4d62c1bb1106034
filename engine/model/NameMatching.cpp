#include "NameMatching.h"

#include "CaseFold.h"

namespace kestrel::engine {

bool namesMatch(std::string_view a, std::string_view b, NameMatching matching) {
    return matching == NameMatching::Exact ? a == b : namesEqual(a, b);
}

uint64_t matchingHash(std::string_view name, NameMatching matching) {
    return matching == NameMatching::Exact ? exactNameHash(name) : nameHash(name);
}

} // namespace kestrel::engine
