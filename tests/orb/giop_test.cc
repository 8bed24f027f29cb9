// GIOP and IOR records: exact wire bytes with alignment from the message
// start, and both byte orders of an IIOP profile.
#include "giop.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "except.h"
#include "zebstrm.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes written(const ZEBIIOPstream& s) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.outData());
    return Bytes(p, p + s.outLength());
}

// A scratch decoder over a copy of the bytes; the copy lives as long as it.
struct Reader {
    explicit Reader(const Bytes& b) : data(b) {
        s.set_read_buffer(reinterpret_cast<char*>(data.data()), data.size(), 0);
    }
    Bytes data;
    ZEBIIOPstream s;
    TBistream& in() { return s; }
};

CORBA_OctetSequence octets(const std::string& text) {
    CORBA_OctetSequence seq;
    seq.length(static_cast<CORBA::ULong>(text.size()));
    if (!text.empty()) std::memcpy(seq.get_buffer(), text.data(), text.size());
    return seq;
}

std::string text(const CORBA_OctetSequence& seq) {
    return std::string(reinterpret_cast<const char*>(seq.get_buffer()), seq.length());
}

// Compares with the expected bytes; 'P' marks padding, whose value is free.
void expectBytes(const Bytes& got, const Bytes& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        if (want[i] != 'P') {
            EXPECT_EQ(got[i], want[i]) << "byte " << i;
        }
    }
}

TEST(GIOPRecords, RequestAlignsFromTheMessageStartAndReadsBack) {
    IIOP::RequestHeader req;
    req.request_id = 1;
    req.response_expected = 1;
    req.object_key = octets("abc");
    req.operation = "_is_a";

    const IIOP::MessageHeader head = {{'G', 'I', 'O', 'P'}, IIOP::CURRENT_VERSION,
                                      IIOP::BYTE_ORDER, IIOP::Request, 0};
    ZEBIIOPstream s;
    static_cast<TBostream&>(s) << head << req;
    expectBytes(written(s), {'G', 'I', 'O', 'P', 1, 0, 1, 0, 0, 0, 0, 0,  // header
                             0, 0, 0, 0,                                  // empty context list
                             1, 0, 0, 0,                                  // request_id
                             1, 'P', 'P', 'P',                            // response_expected
                             3, 0, 0, 0, 'a', 'b', 'c', 'P',              // key, pad to 32
                             6, 0, 0, 0, '_', 'i', 's', '_', 'a', 0,      // operation
                             'P', 'P', 0, 0, 0, 0});                      // principal

    Reader r(written(s));
    IIOP::MessageHeader h;
    IIOP::RequestHeader back;
    back.operation = "a much longer operation name than the one on the wire";
    r.in() >> h >> back;
    EXPECT_EQ(h.message_type, IIOP::Request);
    EXPECT_EQ(text(back.object_key), "abc");
    EXPECT_STREQ(back.operation.in(), "_is_a");
    EXPECT_EQ(r.s.messageBytesLeft(), 0u);
}

TEST(GIOPRecords, LocatorEncapsulationInBothByteOrders) {
    IIOP::ObjectLocator loc;
    loc.host = "host";
    loc.port = 0x1234;
    loc.object_key = octets("key");
    CORBA_OctetSequence_var ours = loc.convert();
    expectBytes(Bytes(ours->get_buffer(), ours->get_buffer() + ours->length()),
                {IIOP::BYTE_ORDER, 1, 0, 'P', 5, 0, 0, 0, 'h', 'o', 's', 't', 0, 'P',
                 0x34, 0x12, 3, 0, 0, 0, 'k', 'e', 'y'});
    std::unique_ptr<IIOP::ObjectLocator> back(IIOP::ObjectLocator::convert(*ours));
    EXPECT_STREQ(back->host.in(), "host");
    EXPECT_EQ(back->port, 0x1234);

    // Written by a big-endian peer: port 8080, a 3-byte key kept as it is.
    const Bytes be = {0, 1, 0, 0xee, 0, 0, 0, 10, '1', '2', '7', '.', '0', '.',
                      '0', '.', '1', 0, 0x1f, 0x90, 0, 0, 0, 3, 'k', 1, 2};
    back.reset(IIOP::ObjectLocator::convert(octets(std::string(be.begin(), be.end()))));
    EXPECT_EQ(back->iiop_version.major, 1);
    EXPECT_STREQ(back->host.in(), "127.0.0.1");
    EXPECT_EQ(back->port, 8080);
    EXPECT_EQ(text(back->object_key), std::string("k\1\2", 3));
}

}  // namespace
