// The binary buffer stream over a block that a transport filled, through
// the shared record decoders (primitives, strings with and without a limit,
// arrays, the broker's records). This stream never throws: short data
// leaves the target as it was, so a decoder must stop on its own.
#include <cstdint>
#include <vector>

#include "common.h"
#include "decoders.h"
#include "except.h"
#include "tbipcstr.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) { return kfuzz::init(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kfuzz::Input in(data, size);
    std::vector<char> bytes(in.data(), in.data() + in.size());
    TBipcbuf buf(nullptr, 0, bytes.data(), static_cast<int>(bytes.size()), 0);
    buf.read_end += bytes.size();
    TBipcstream s(&buf);
    do {
        try {
            kfuzz::decodeOne(s, in.op(), false);
        } catch (const CORBA_SystemException&) {
        }
    } while (in.moreOps());
    return 0;
}
