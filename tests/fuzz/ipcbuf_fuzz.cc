// The binary buffer stream over a block that a transport filled: the
// primitives, strings with and without a limit, arrays, and the broker's
// records read through it. This stream never throws: short data leaves the
// target as it was, so a decoder must stop on its own.
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"
#include "decoders.h"
#include "except.h"
#include "tbipcstr.h"

namespace {

void readOne(TBipcstream& s, uint8_t op) {
    const unsigned arg = op >> 4;
    switch (op % 8) {
    case 0: {
        char c;
        unsigned char o;
        short h;
        int i;
        unsigned long ul;
        float f;
        double d;
        s >> c >> o >> h >> i >> ul >> f >> d;
        (void)s.get();
        break;
    }
    case 1: {
        char* text = nullptr;
        s >> text;
        delete[] text;
        break;
    }
    case 2: {
        static const unsigned limits[16] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 31, 64, 255, 256,
                                            1024};
        unsigned max = limits[arg];
        std::unique_ptr<char[]> buf(new char[max + 1]);
        s.getCString(buf.get(), max);
        break;
    }
    case 3: {
        char raw[64];
        s.get(raw, arg * 4 + (op & 3));
        break;
    }
    case 4: {
        short h[16];
        long l[16];
        double d[16];
        s.get(h, arg);
        s.get(l, arg);
        s.get(d, arg);
        break;
    }
    default:
        // The broker's records on a stream that reports nothing.
        try {
            kfuzz::decodeOne(s, op >> 3, false);
        } catch (const CORBA_SystemException&) {
        }
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return kfuzz::init(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kfuzz::Input in(data, size);
    std::vector<char> bytes(in.data(), in.data() + in.size());
    TBipcbuf buf(nullptr, 0, bytes.data(), static_cast<int>(bytes.size()), 0);
    buf.read_end += bytes.size();
    TBipcstream s(&buf);
    do {
        readOne(s, in.op());
    } while (in.moreOps());
    return 0;
}
