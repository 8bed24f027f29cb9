// Raw memory helpers of the dispatcher.
#include "osmemory.h"

#include <cstring>

void osMemory::copy(const void* from, void* to, unsigned n) {
    std::memmove(to, from, n);
}

int osMemory::compare(const void* a, const void* b, unsigned n) {
    return std::memcmp(a, b, n);
}

void osMemory::zero(void* to, unsigned n) {
    std::memset(to, 0, n);
}
