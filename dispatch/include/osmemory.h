// Raw memory helpers used by the dispatcher's bit sets. Thin wrappers so
// that the few byte-level operations of the event loop go through one place.
#ifndef KELVANOR_OSMEMORY_H
#define KELVANOR_OSMEMORY_H

class osMemory {
public:
    // Copies n bytes; the two areas may overlap.
    static void copy(const void* from, void* to, unsigned n);
    // Byte-wise comparison: negative, zero or positive like memcmp.
    static int compare(const void* a, const void* b, unsigned n);
    static void zero(void* to, unsigned n);
};

#endif
