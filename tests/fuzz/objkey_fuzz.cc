// Object keys as a client or another broker sends them. A key that decodes
// must encode again, and that encoding must decode to the same encoding:
// the decoder and the encoder agree on every field.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common.h"
#include "except.h"
#include "sequence.h"
#include "zebboa.h"
#include "zebglob.h"
#include "zeboid.h"
#include "zebskel.h"

namespace {

CORBA_OctetSequence* keyOf(const uint8_t* data, size_t size) {
    CORBA::ULong n = static_cast<CORBA::ULong>(size);
    CORBA::Octet* buf = CORBA_OctetSequence::allocbuf(n);
    if (n) std::memcpy(buf, data, n);
    return new CORBA_OctetSequence(n, n, buf, 1);
}

bool sameOctets(const CORBA_OctetSequence& a, const CORBA_OctetSequence& b) {
    return a.length() == b.length() &&
           (a.length() == 0 || std::memcmp(a.get_buffer(), b.get_buffer(), a.length()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return kfuzz::init(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::unique_ptr<CORBA_OctetSequence> key(keyOf(data, size));
    (void)ZEBObjectId::isZEBKey(*key);
    std::unique_ptr<ZEBObjectId> id;
    try {
        id.reset(ZEBObjectId::convert(*key));
    } catch (const CORBA_MARSHAL&) {
        return 0;  // our magic, cut short
    }
    if (!id) return 0;

    // The adapter's search by every kind of key.
    TBResource::unref(ZEBGlobalTable::_boa->skelAt(*id));

    std::unique_ptr<CORBA_OctetSequence> once(id->convert());
    std::unique_ptr<ZEBObjectId> again(ZEBObjectId::convert(*once));
    if (!again || again->type() != id->type()) std::abort();
    std::unique_ptr<CORBA_OctetSequence> twice(again->convert());
    if (!sameOctets(*once, *twice)) std::abort();
    return 0;
}
