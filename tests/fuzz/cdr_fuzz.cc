// CDR from a peer or an Any, through both decoders of the broker: the
// connection stream used as a scratch decoder over a block in memory, and
// the memory buffer. The script picks the byte order and the records to
// read; a run stops at the first CORBA_MARSHAL, as a real reader would.
#include <cstdint>
#include <cstring>
#include <vector>

#include "common.h"
#include "decoders.h"
#include "except.h"
#include "giop.h"
#include "mstrm.h"
#include "zebstrm.h"

namespace {

void run(TBistream& strm, kfuzz::Input in, bool growsTargets) {
    try {
        do {
            kfuzz::decodeOne(strm, in.op(), growsTargets);
        } while (in.moreOps());
    } catch (const CORBA_SystemException&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return kfuzz::init(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kfuzz::Input in(data, size);
    const bool swapped = size > 0 && (data[0] & 0x80);
    {
        // The stream reads the caller's bytes in place: a copy of exactly
        // the data, so that any read beyond it is seen.
        std::vector<char> bytes(in.data(), in.data() + in.size());
        ZEBIIOPstream s;
        s.set_read_buffer(bytes.data(), bytes.size(), 0);
        s.byteOrder(swapped ? !IIOP::BYTE_ORDER : IIOP::BYTE_ORDER);
        run(s, in, true);
    }
    {
        char* block = new char[in.size() ? in.size() : 1];
        if (in.size()) std::memcpy(block, in.data(), in.size());
        CORBA_MarshalInBuffer m(block, static_cast<CORBA::ULong>(in.size()));
        m.byte_order(swapped ? !CORBA::ByteOrder : CORBA::ByteOrder);
        run(m, in, false);
        delete[] block;
    }
    return 0;
}
