// Object graphs read back with their identity tables: class names, class
// numbers and back references, from the binary buffer stream or from the
// text form. Whatever comes back is released the way its owner would: a
// counted resource by its count, any other object by delete.
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "common.h"
#include "tbipcstr.h"
#include "tbiostrm.h"
#include "tbresrc.h"
#include "tbtinfo.h"
#include "zebstring.h"

namespace {

// More objects than an input of -max_len bytes can hold.
constexpr int kMaxObjects = 1024;

void release(TBTransObject* obj) {
    if (auto* r = dynamic_cast<TBResource*>(obj))
        TBResource::unref(r);
    else
        delete obj;
}

void readAll(TBistream& in, const std::function<bool()>& more) {
    for (int i = 0; i < kMaxObjects && more(); ++i) {
        TBTransObject* obj = in.readTransObj();
        if (!obj) break;
        release(obj);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kfuzz::quiet();
    TBinit();
    ZEBString linked("the broker's value classes are linked in");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char* body = reinterpret_cast<const char*>(data + 1);
    const size_t n = size - 1;
    if (data[0] & 1) {
        std::istringstream text(std::string(body, n));
        TBistream in(text);
        readAll(in, [&] { return static_cast<bool>(text >> std::ws); });
    } else {
        std::vector<char> bytes(body, body + n);
        TBipcbuf buf(nullptr, 0, bytes.data(), static_cast<int>(bytes.size()), 0);
        buf.read_end += bytes.size();
        TBipcstream in(&buf);
        readAll(in, [&] { return buf.readAvail() > 0; });
    }
    return 0;
}
