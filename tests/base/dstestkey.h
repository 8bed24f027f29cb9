// A collection element for the collection tests: an id that decides
// equality, a hash chosen by the test (so that keys land in chosen slots),
// a count of live instances and an optional hook run on destruction.
#ifndef KELVANOR_TESTS_DSTESTKEY_H
#define KELVANOR_TESTS_DSTESTKEY_H

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "dscltn.h"
#include "tbiostrm.h"
#include "tbresrc.h"

class DSTestKey : public DSResource {
public:
    DSTestKey(unsigned i, unsigned h) : id(i), h(h) { ++alive(); }
    explicit DSTestKey(unsigned i) : DSTestKey(i, i) {}
    explicit DSTestKey(TBistream& s) : DSResource(s) { s >> id >> h, ++alive(); }
    ~DSTestKey() override {
        --alive();
        if (onDestroy) onDestroy();
    }
    static int& alive() {
        static int n = 0;
        return n;
    }

    unsigned hash() const override { return h; }
    int compare(const TBObject& o) const override {
        auto k = dynamic_cast<const DSTestKey*>(&o);
        return k ? static_cast<int>(id) - static_cast<int>(k->id) : -1;
    }
    void write(TBostream& s) const override { s << id << h; }
    const TBTypeInfo* classInfo() const override { return &info; }
    static const TBTypeInfo* desc() { return &info; }
    static TBTransObject* readFrom(TBistream& s) { return new DSTestKey(s); }
    static inline TBTypeInfo info{"DSTestKey", &DSTestKey::readFrom, DSResource::desc(),
                                  static_cast<const TBTypeInfo*>(nullptr)};

    unsigned id, h;
    std::function<void()> onDestroy;
};

// A hash whose home in a table of 2^bits slots is `slot`: the multiplicative
// hash inverted with the inverse of its constant mod 2^32 (Newton's method).
inline unsigned dsHashHomedAt(unsigned slot, unsigned bits) {
    uint32_t c = 2654435769u, inv = c;
    for (int i = 0; i < 5; ++i) inv *= 2 - c * inv;
    return static_cast<uint32_t>(slot << (32 - bits)) * inv;
}

// Ids of a collection's elements in iteration order.
inline std::vector<unsigned> dsIds(const DSCollection& c) {
    std::vector<unsigned> ids;
    DSIterator it(c);
    while (DSResource* r = it.next()) ids.push_back(TB_CAST(DSTestKey, r)->id);
    return ids;
}
using DSIds = std::vector<unsigned>;

// The object stream form of obj, in text.
inline std::string dsText(const TBTransObject* obj) {
    std::ostringstream os;
    TBostream(os) << obj;
    return os.str();
}

// The object read back from text; the caller owns it.
inline TBTransObject* dsRead(const std::string& text) {
    std::istringstream is(text);
    return TBistream(is).readTransObj();
}

#endif
