// The descriptor bit set handed straight to select().
#ifndef KELVANOR_FDMASK_H
#define KELVANOR_FDMASK_H

#include <cstdint>
#include <sys/select.h>

// A fixed set of 1024 bits: bit n is bit (n % 32) of word n / 32, which on
// this little-endian platform is the layout of fd_set, so fdSet() can be
// given to select() as it stands.
class dpFdMask {
public:
    static constexpr int kBits = 1024;
    static constexpr int kWords = kBits / 32;

    dpFdMask();

    void zero();
    // Descriptors outside 0..1023 have no bit: setBit and clrBit ignore
    // them and isSet answers 0. (The dispatcher's tables accept descriptors
    // up to 2499; only the first 1024 can ever be selected.)
    void setBit(int fd);
    void clrBit(int fd);
    int isSet(int fd) const;
    bool anySet() const;
    int numSet() const;

    fd_set* fdSet();

private:
    std::uint32_t _words[kWords];
};

static_assert(sizeof(dpFdMask) == sizeof(fd_set), "dpFdMask must mirror fd_set");

#endif
