// The records of a GIOP 1.0 connection (namespace IIOP) and of an
// interoperable object reference (namespace IOP), with their stream forms.
// Each record has a writer on TBostream, a reader on TBistream and a text
// operator on ostream that prints for people on cout, cerr and clog and
// writes the stream form on any other ostream. Alignment is the stream's:
// a record written to a connection aligns from the message start.
#ifndef KELVANOR_GIOP_H
#define KELVANOR_GIOP_H

// <endian.h> defines a BYTE_ORDER macro that would swallow IIOP::BYTE_ORDER.
// Including it here first sets its guard, so that taking the macro away
// holds for every later system header too.
#include <endian.h>
#ifdef BYTE_ORDER
#undef BYTE_ORDER
#endif

#include <iosfwd>
#include <vector>

#include <kelvanor/corba.h>
#include <kelvanor/sequence.h>
#include <kelvanor/zebseq.h>

class TBistream;
class TBostream;

namespace IIOP {

struct Version {
    CORBA::Octet major;
    CORBA::Octet minor;
};

constexpr Version CURRENT_VERSION = {1, 0};
constexpr char MAGIC_WORD[4] = {'G', 'I', 'O', 'P'};
// The GIOP byte-order flag of this host: 0 big-endian, 1 little-endian.
// Not to be confused with CORBA::ByteOrder, which has the reverse sense.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr CORBA::Octet BYTE_ORDER = 0;
#else
constexpr CORBA::Octet BYTE_ORDER = 1;
#endif
// A context_id.
constexpr CORBA::ULong TransactionService = 0;

// One octet on the wire. Types 7 and 8 are this broker's own additions.
enum MsgType : CORBA::Octet {
    Request = 0,
    Reply = 1,
    CancelRequest = 2,
    LocateRequest = 3,
    LocateReply = 4,
    CloseConnection = 5,
    MessageError = 6,
    ShmConnectRequest = 7,
    ShmConnectReply = 8
};

// Unsigned long on the wire; a value out of range is kept as it came.
enum ReplyStatusType : CORBA::ULong {
    NO_EXCEPTION = 0,
    USER_EXCEPTION = 1,
    SYSTEM_EXCEPTION = 2,
    LOCATION_FORWARD = 3
};

enum LocateStatusType : CORBA::ULong {
    UNKNOWN_OBJECT = 0,
    OBJECT_HERE = 1,
    OBJECT_FORWARD = 2
};

// 12 bytes. message_size counts the bytes after the header, in the order
// that byte_order names; the reader swaps it (the stream does, not this
// record's operator).
struct MessageHeader {
    char magic[4];
    Version iiop_version;
    CORBA::Boolean byte_order;
    CORBA::Octet message_type;  // an MsgType; unknown codes are kept
    CORBA::ULong message_size;
};

struct ServiceContext {
    CORBA::ULong context_id = 0;
    CORBA_OctetSequence context_data;
};

class ServiceContextList : public ZEBSequence<ServiceContext> {
public:
    using ZEBSequence<ServiceContext>::ZEBSequence;
};

struct RequestHeader {
    ServiceContextList service_context;
    CORBA::ULong request_id = 0;
    CORBA::Boolean response_expected = 0;
    CORBA_OctetSequence object_key;
    CORBA_String_var operation;
    CORBA_OctetSequence requesting_principal;
};

struct ReplyHeader {
    ServiceContextList service_context;
    CORBA::ULong request_id = 0;
    ReplyStatusType reply_status = NO_EXCEPTION;
};

struct CancelRequestHeader {
    CORBA::ULong request_id = 0;
};

struct LocateRequestHeader {
    CORBA::ULong request_id = 0;
    CORBA_OctetSequence object_key;
};

struct LocateReplyHeader {
    CORBA::ULong request_id = 0;
    LocateStatusType locate_status = UNKNOWN_OBJECT;
};

// The body of a ShmConnectReply is request_id and an unsigned long 0; it
// has no record of its own.
struct ShmConnectRequestHeader {
    CORBA::ULong request_id = 0;
    CORBA_String_var name;
};

// One tagged component of an IIOP 1.1 or later profile (ORB type, code
// sets, ...), kept as it came.
struct TaggedComponent {
    CORBA::ULong tag = 0;
    CORBA_OctetSequence component_data;
};

// The body of a profile of tag IOP::TAG_INTERNET_IOP.
struct ObjectLocator {
    Version iiop_version = CURRENT_VERSION;
    CORBA_String_var host;
    CORBA::UShort port = 0;
    CORBA_OctetSequence object_key;

    // The profile data: a byte-order octet (ours) and the four fields, with
    // the alignment origin at the octet. The caller owns the result.
    CORBA_OctetSequence* convert() const;
    // Decodes profile data in either byte order. The caller owns the
    // result. Data that ends early throws CORBA_MARSHAL. A profile of
    // version 1.1 or later carries tagged components after the key; they are
    // left unread unless components is given, which then receives them.
    static ObjectLocator* convert(const CORBA_OctetSequence& data,
                                  std::vector<TaggedComponent>* components = nullptr);
    // A deep copy owned by the caller.
    ObjectLocator* copy() const;
};

TBostream& operator<<(TBostream& strm, const Version& v);
TBistream& operator>>(TBistream& strm, Version& v);
std::ostream& operator<<(std::ostream& os, const Version& v);

TBostream& operator<<(TBostream& strm, const MessageHeader& h);
TBistream& operator>>(TBistream& strm, MessageHeader& h);
std::ostream& operator<<(std::ostream& os, const MessageHeader& h);

TBostream& operator<<(TBostream& strm, const ServiceContext& c);
TBistream& operator>>(TBistream& strm, ServiceContext& c);
std::ostream& operator<<(std::ostream& os, const ServiceContext& c);

TBostream& operator<<(TBostream& strm, const ServiceContextList& l);
TBistream& operator>>(TBistream& strm, ServiceContextList& l);
std::ostream& operator<<(std::ostream& os, const ServiceContextList& l);

TBostream& operator<<(TBostream& strm, const RequestHeader& h);
TBistream& operator>>(TBistream& strm, RequestHeader& h);
std::ostream& operator<<(std::ostream& os, const RequestHeader& h);

TBostream& operator<<(TBostream& strm, const ReplyHeader& h);
TBistream& operator>>(TBistream& strm, ReplyHeader& h);
std::ostream& operator<<(std::ostream& os, const ReplyHeader& h);

TBostream& operator<<(TBostream& strm, const CancelRequestHeader& h);
TBistream& operator>>(TBistream& strm, CancelRequestHeader& h);
std::ostream& operator<<(std::ostream& os, const CancelRequestHeader& h);

TBostream& operator<<(TBostream& strm, const LocateRequestHeader& h);
TBistream& operator>>(TBistream& strm, LocateRequestHeader& h);
std::ostream& operator<<(std::ostream& os, const LocateRequestHeader& h);

TBostream& operator<<(TBostream& strm, const LocateReplyHeader& h);
TBistream& operator>>(TBistream& strm, LocateReplyHeader& h);
std::ostream& operator<<(std::ostream& os, const LocateReplyHeader& h);

TBostream& operator<<(TBostream& strm, const ShmConnectRequestHeader& h);
TBistream& operator>>(TBistream& strm, ShmConnectRequestHeader& h);
std::ostream& operator<<(std::ostream& os, const ShmConnectRequestHeader& h);

TBostream& operator<<(TBostream& strm, const ObjectLocator& l);
TBistream& operator>>(TBistream& strm, ObjectLocator& l);
std::ostream& operator<<(std::ostream& os, const ObjectLocator& l);

// The names that the text form prints: "NO_EXCEPTION", "OBJECT_HERE"...;
// null for a value out of range.
const char* statusName(ReplyStatusType s);
const char* statusName(LocateStatusType s);

}  // namespace IIOP

namespace IOP {

constexpr CORBA::ULong TAG_INTERNET_IOP = 0;
constexpr CORBA::ULong TAG_MULTIPLE_COMPONENTS = 1;

struct TaggedProfile {
    CORBA::ULong tag = 0;
    CORBA_OctetSequence profile_data;  // never interpreted here
};

class ProfileSequence : public ZEBSequence<TaggedProfile> {
public:
    using ZEBSequence<TaggedProfile>::ZEBSequence;
};

// A null type_id and no profiles is the nil reference: 8 bytes on a stream.
struct IOR {
    CORBA_String_var type_id;
    ProfileSequence profiles;
};

TBostream& operator<<(TBostream& strm, const TaggedProfile& p);
TBistream& operator>>(TBistream& strm, TaggedProfile& p);
std::ostream& operator<<(std::ostream& os, const TaggedProfile& p);

TBostream& operator<<(TBostream& strm, const ProfileSequence& s);
TBistream& operator>>(TBistream& strm, ProfileSequence& s);
std::ostream& operator<<(std::ostream& os, const ProfileSequence& s);

TBostream& operator<<(TBostream& strm, const IOR& ior);
TBistream& operator>>(TBistream& strm, IOR& ior);
std::ostream& operator<<(std::ostream& os, const IOR& ior);

}  // namespace IOP

#endif
