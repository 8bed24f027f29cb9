// Stringified references as a user or a file gives them, and the profile
// data inside a reference. The first byte chooses the form: the text as it
// came, the data behind "IOR:" as hexadecimal digits (so that the decoder
// behind the text is reached quickly), or the data as the body of an IIOP
// profile.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common.h"
#include "except.h"
#include "giop.h"
#include "iorstr.h"
#include "object.h"
#include "orb.h"
#include "sequence.h"

namespace {

std::string hexText(const uint8_t* data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text = "IOR:";
    for (size_t i = 0; i < size; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0xf];
    }
    return text;
}

void reference(const std::string& text) {
    std::unique_ptr<IOP::IOR> ior(stringToIOR(text.c_str()));
    CORBA_ORB* orb = kfuzz::orb();
    CORBA_Object* obj = orb->string_to_object(text.c_str());
    if (obj) {
        // What we would give out again for it decodes too.
        CORBA_String_var again(orb->object_to_string(obj));
        CORBA::release(orb->string_to_object(again));
    }
    CORBA::release(obj);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return kfuzz::init(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    try {
        switch (data[0] % 3) {
        case 0:
            reference(std::string(reinterpret_cast<const char*>(data + 1), size - 1).c_str());
            break;
        case 1:
            reference(hexText(data + 1, size - 1));
            break;
        default: {
            CORBA_OctetSequence profile(static_cast<CORBA::ULong>(size - 1));
            profile.length(static_cast<CORBA::ULong>(size - 1));
            for (size_t i = 1; i < size; ++i) profile[static_cast<CORBA::ULong>(i - 1)] = data[i];
            std::vector<IIOP::TaggedComponent> components;
            std::unique_ptr<IIOP::ObjectLocator> loc(
                IIOP::ObjectLocator::convert(profile, &components));
            if (loc) std::unique_ptr<CORBA_OctetSequence>(loc->convert());
            break;
        }
        }
    } catch (const CORBA_SystemException&) {
    }
    return 0;
}
