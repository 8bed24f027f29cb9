// The descriptor bit set of the dispatcher.
#include "fdmask.h"

#include "osmemory.h"

namespace {
bool inRange(int fd) {
    return fd >= 0 && fd < dpFdMask::kBits;
}
}

dpFdMask::dpFdMask() {
    zero();
}

void dpFdMask::zero() {
    osMemory::zero(_words, sizeof(_words));
}

// Out-of-range descriptors would write past the 128 bytes; they are ignored.
void dpFdMask::setBit(int fd) {
    if (inRange(fd))
        _words[fd / 32] |= std::uint32_t(1) << (fd % 32);
}

void dpFdMask::clrBit(int fd) {
    if (inRange(fd))
        _words[fd / 32] &= ~(std::uint32_t(1) << (fd % 32));
}

int dpFdMask::isSet(int fd) const {
    if (!inRange(fd))
        return 0;
    return (_words[fd / 32] >> (fd % 32)) & 1;
}

bool dpFdMask::anySet() const {
    for (std::uint32_t word : _words)
        if (word != 0)
            return true;
    return false;
}

int dpFdMask::numSet() const {
    int n = 0;
    for (std::uint32_t word : _words)
        n += __builtin_popcount(word);
    return n;
}

// select() only reads and writes the bytes; the layouts match (see the
// static_assert in the header and the little-endian word order).
fd_set* dpFdMask::fdSet() {
    return reinterpret_cast<fd_set*>(_words);
}
