// Stringified references: the hexadecimal text of an encapsulated IOP::IOR.
#include "iorstr.h"

#include <cstring>
#include <memory>

#include "giop.h"
#include "zebstrm.h"

namespace {

constexpr char kPrefix[] = "IOR:";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;

// Value of one hexadecimal digit, either case; -1 for anything else.
int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

char* iorToString(const IOP::IOR& ior) {
    ZEBIIOPstream s;
    s.newOutEncapsulation();
    TBostream& out = s;
    out << static_cast<unsigned char>(IIOP::BYTE_ORDER) << ior;

    static const char digits[] = "0123456789abcdef";
    const unsigned char* data = reinterpret_cast<const unsigned char*>(s.outData());
    const CORBA::ULong n = static_cast<CORBA::ULong>(s.outLength());
    char* text = CORBA::string_alloc(2 * n + kPrefixLength);
    std::memcpy(text, kPrefix, kPrefixLength);
    char* p = text + kPrefixLength;
    for (CORBA::ULong i = 0; i < n; ++i) {
        *p++ = digits[data[i] >> 4];
        *p++ = digits[data[i] & 0xf];
    }
    *p = '\0';
    return text;
}

IOP::IOR* stringToIOR(const char* text) {
    if (!text || std::strncmp(text, kPrefix, kPrefixLength) != 0) return nullptr;
    const char* hex = text + kPrefixLength;
    // A last lone digit makes no byte; the decoder never looks at it.
    const size_t n = std::strlen(hex) / 2;
    std::unique_ptr<char[]> bytes(new char[n ? n : 1]);
    for (size_t i = 0; i < n; ++i) {
        const int hi = hexValue(hex[2 * i]);
        const int lo = hexValue(hex[2 * i + 1]);
        if (hi < 0 || lo < 0) return nullptr;
        bytes[i] = static_cast<char>(hi << 4 | lo);
    }
    if (n * 2 < std::strlen(hex) && hexValue(hex[2 * n]) < 0) return nullptr;

    ZEBIIOPstream s;
    s.set_read_buffer(bytes.get(), n, 0);
    TBistream& in = s;
    unsigned char order = 0;
    in >> order;
    s.byteOrder(order);
    std::unique_ptr<IOP::IOR> ior(new IOP::IOR);
    in >> *ior;
    return ior.release();
}
