// GIOP records: the exact wire bytes of a request header, aligned from the
// message start, and the header read back.
#include "giop.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zebstrm.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes written(const ZEBIIOPstream& s) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.outData());
    return Bytes(p, p + s.outLength());
}

CORBA_OctetSequence octets(const std::string& text) {
    CORBA_OctetSequence seq;
    seq.length(static_cast<CORBA::ULong>(text.size()));
    if (!text.empty()) std::memcpy(seq.get_buffer(), text.data(), text.size());
    return seq;
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

    Bytes data = written(s);
    ZEBIIOPstream r;
    r.set_read_buffer(reinterpret_cast<char*>(data.data()), data.size(), 0);
    IIOP::MessageHeader h;
    IIOP::RequestHeader back;
    back.operation = "a much longer operation name than the one on the wire";
    static_cast<TBistream&>(r) >> h >> back;
    EXPECT_EQ(h.message_type, IIOP::Request);
    EXPECT_EQ(0, back.object_key.compare(req.object_key));
    EXPECT_STREQ(back.operation.in(), "_is_a");
    EXPECT_EQ(r.messageBytesLeft(), 0u);
}

}  // namespace
