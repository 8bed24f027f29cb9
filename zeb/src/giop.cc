// Stream and text forms of the GIOP and IOR records, and the encapsulated
// form of an IIOP profile.
#include "giop.h"

#include <cstring>
#include <iostream>
#include <memory>

#include "except.h"
#include "tbiostrm.h"
#include "zebstrm.h"

namespace {

// Reads a string into a holder that is emptied first. Streams differ in
// what they do with a non-null target (one of them writes into it with no
// check of room), so every record reader hands them a null one.
void readString(TBistream& strm, CORBA_String_var& s) {
    s = nullptr;
    strm >> s.inout();
}

const char* textOf(const char* s) { return s ? s : "(null)"; }

// Writes the stream form of r when os is not a console; false otherwise,
// and the caller prints the text form.
template <class R>
bool writeStreamForm(std::ostream& os, const R& r) {
    if (ZEBisConsole(os)) return false;
    TBostream strm(os);
    strm << r;
    return true;
}

template <class S>
void printSequence(std::ostream& os, const char* name, const S& s) {
    os << "SEQUENCE NAME: " << name << std::endl;
    os << "NUM OF ELEMENTS: " << s.length() << std::endl;
    for (CORBA::ULong i = 0; i < s.length(); ++i) os << "ELEMENT NUM: " << i << " = " << s[i];
}

void openStruct(std::ostream& os, const char* name) { os << "struct " << name << " {" << std::endl; }
void closeStruct(std::ostream& os) { os << "}" << std::endl; }

// Field whose value prints on one line.
template <class V>
void field(std::ostream& os, const char* name, const V& value) {
    os << "\t" << name << ": " << value << std::endl;
}
// Field whose value prints its own lines (records and sequences).
template <class V>
void blockField(std::ostream& os, const char* name, const V& value) {
    os << "\t" << name << ": " << value;
}

void octet(std::ostream& os, const char* name, CORBA::Octet v) {
    field(os, name, static_cast<unsigned>(v));
}

// A copy of the bytes the scratch stream has written.
CORBA_OctetSequence* copyOutput(const ZEBIIOPstream& s) {
    const CORBA::ULong n = static_cast<CORBA::ULong>(s.outLength());
    CORBA_OctetSequence* seq = new CORBA_OctetSequence(n);
    seq->length(n);
    if (n) std::memcpy(seq->get_buffer(), s.outData(), n);
    return seq;
}

}  // namespace

namespace IIOP {

// ------------------------------------------------------------------ Version

TBostream& operator<<(TBostream& strm, const Version& v) { return strm << v.major << v.minor; }

TBistream& operator>>(TBistream& strm, Version& v) { return strm >> v.major >> v.minor; }

std::ostream& operator<<(std::ostream& os, const Version& v) {
    if (writeStreamForm(os, v)) return os;
    openStruct(os, "IIOP::Version");
    octet(os, "major", v.major);
    octet(os, "minor", v.minor);
    closeStruct(os);
    return os;
}

// ------------------------------------------------------------ MessageHeader

TBostream& operator<<(TBostream& strm, const MessageHeader& h) {
    strm.put(h.magic, 4);
    strm << h.iiop_version << h.byte_order << h.message_type;
    return strm << static_cast<unsigned long>(h.message_size);
}

TBistream& operator>>(TBistream& strm, MessageHeader& h) {
    unsigned long size = 0;
    strm.get(h.magic, 4);
    strm >> h.iiop_version >> h.byte_order >> h.message_type >> size;
    h.message_size = static_cast<CORBA::ULong>(size);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const MessageHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::MessageHeader");
    os << "\tmagic: ";
    os.write(h.magic, 4);
    os << std::endl;
    blockField(os, "iiop_version", h.iiop_version);
    octet(os, "byte_order", h.byte_order);
    octet(os, "message_type", h.message_type);
    field(os, "message_size", h.message_size);
    closeStruct(os);
    return os;
}

// ----------------------------------------------------------- ServiceContext

TBostream& operator<<(TBostream& strm, const ServiceContext& c) {
    return strm << static_cast<unsigned long>(c.context_id) << c.context_data;
}

TBistream& operator>>(TBistream& strm, ServiceContext& c) {
    unsigned long id = 0;
    strm >> id >> c.context_data;
    c.context_id = static_cast<CORBA::ULong>(id);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ServiceContext& c) {
    if (writeStreamForm(os, c)) return os;
    openStruct(os, "IIOP::ServiceContext");
    field(os, "context_id", c.context_id);
    blockField(os, "context_data", c.context_data);
    closeStruct(os);
    return os;
}

TBostream& operator<<(TBostream& strm, const ServiceContextList& l) {
    l.write(strm);
    return strm;
}

TBistream& operator>>(TBistream& strm, ServiceContextList& l) {
    l.read(strm);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ServiceContextList& l) {
    if (writeStreamForm(os, l)) return os;
    printSequence(os, "IIOP::ServiceContextList", l);
    return os;
}

// ------------------------------------------------------------ RequestHeader

TBostream& operator<<(TBostream& strm, const RequestHeader& h) {
    strm << h.service_context << static_cast<unsigned long>(h.request_id) << h.response_expected
         << h.object_key;
    strm << h.operation.in();
    return strm << h.requesting_principal;
}

TBistream& operator>>(TBistream& strm, RequestHeader& h) {
    unsigned long id = 0;
    strm >> h.service_context >> id >> h.response_expected >> h.object_key;
    h.request_id = static_cast<CORBA::ULong>(id);
    readString(strm, h.operation);
    return strm >> h.requesting_principal;
}

std::ostream& operator<<(std::ostream& os, const RequestHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::RequestHeader");
    blockField(os, "service_context", h.service_context);
    field(os, "request_id", h.request_id);
    octet(os, "response_expected", h.response_expected);
    blockField(os, "object_key", h.object_key);
    field(os, "operation", textOf(h.operation.in()));
    blockField(os, "requesting_principal", h.requesting_principal);
    closeStruct(os);
    return os;
}

// -------------------------------------------------------------- ReplyHeader

const char* statusName(ReplyStatusType s) {
    switch (s) {
    case NO_EXCEPTION: return "NO_EXCEPTION";
    case USER_EXCEPTION: return "USER_EXCEPTION";
    case SYSTEM_EXCEPTION: return "SYSTEM_EXCEPTION";
    case LOCATION_FORWARD: return "LOCATION_FORWARD";
    }
    return nullptr;
}

const char* statusName(LocateStatusType s) {
    switch (s) {
    case UNKNOWN_OBJECT: return "UNKNOWN_OBJECT";
    case OBJECT_HERE: return "OBJECT_HERE";
    case OBJECT_FORWARD: return "OBJECT_FORWARD";
    }
    return nullptr;
}

namespace {
// "ReplyStatusType:NO_EXCEPTION"; a status out of range prints its number.
template <class S>
void statusField(std::ostream& os, const char* name, const char* prefix, S s) {
    os << "\t" << name << ": " << prefix;
    if (const char* text = statusName(s))
        os << text;
    else
        os << static_cast<CORBA::ULong>(s);
    os << std::endl;
}
}  // namespace

TBostream& operator<<(TBostream& strm, const ReplyHeader& h) {
    return strm << h.service_context << static_cast<unsigned long>(h.request_id)
                << static_cast<unsigned long>(h.reply_status);
}

TBistream& operator>>(TBistream& strm, ReplyHeader& h) {
    unsigned long id = 0, status = 0;
    strm >> h.service_context >> id >> status;
    h.request_id = static_cast<CORBA::ULong>(id);
    h.reply_status = static_cast<ReplyStatusType>(static_cast<CORBA::ULong>(status));
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ReplyHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::ReplyHeader");
    blockField(os, "service_context", h.service_context);
    field(os, "request_id", h.request_id);
    statusField(os, "reply_status", "ReplyStatusType:", h.reply_status);
    closeStruct(os);
    return os;
}

// ------------------------------------------------------ CancelRequestHeader

TBostream& operator<<(TBostream& strm, const CancelRequestHeader& h) {
    return strm << static_cast<unsigned long>(h.request_id);
}

TBistream& operator>>(TBistream& strm, CancelRequestHeader& h) {
    unsigned long id = 0;
    strm >> id;
    h.request_id = static_cast<CORBA::ULong>(id);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const CancelRequestHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::CancelRequestHeader");
    field(os, "request_id", h.request_id);
    closeStruct(os);
    return os;
}

// ------------------------------------------------------ LocateRequestHeader

TBostream& operator<<(TBostream& strm, const LocateRequestHeader& h) {
    return strm << static_cast<unsigned long>(h.request_id) << h.object_key;
}

TBistream& operator>>(TBistream& strm, LocateRequestHeader& h) {
    unsigned long id = 0;
    strm >> id >> h.object_key;
    h.request_id = static_cast<CORBA::ULong>(id);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const LocateRequestHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::LocateRequestHeader");
    field(os, "request_id", h.request_id);
    blockField(os, "object_key", h.object_key);
    closeStruct(os);
    return os;
}

// -------------------------------------------------------- LocateReplyHeader

TBostream& operator<<(TBostream& strm, const LocateReplyHeader& h) {
    return strm << static_cast<unsigned long>(h.request_id)
                << static_cast<unsigned long>(h.locate_status);
}

TBistream& operator>>(TBistream& strm, LocateReplyHeader& h) {
    unsigned long id = 0, status = 0;
    strm >> id >> status;
    h.request_id = static_cast<CORBA::ULong>(id);
    h.locate_status = static_cast<LocateStatusType>(static_cast<CORBA::ULong>(status));
    return strm;
}

std::ostream& operator<<(std::ostream& os, const LocateReplyHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::LocateReplyHeader");
    field(os, "request_id", h.request_id);
    statusField(os, "locate_status", "LocateStatusType:", h.locate_status);
    closeStruct(os);
    return os;
}

// -------------------------------------------------- ShmConnectRequestHeader

TBostream& operator<<(TBostream& strm, const ShmConnectRequestHeader& h) {
    strm << static_cast<unsigned long>(h.request_id);
    return strm << h.name.in();
}

TBistream& operator>>(TBistream& strm, ShmConnectRequestHeader& h) {
    unsigned long id = 0;
    strm >> id;
    h.request_id = static_cast<CORBA::ULong>(id);
    readString(strm, h.name);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ShmConnectRequestHeader& h) {
    if (writeStreamForm(os, h)) return os;
    openStruct(os, "IIOP::ShmConnectRequestHeader");
    field(os, "request_id", h.request_id);
    field(os, "name", textOf(h.name.in()));
    closeStruct(os);
    return os;
}

// ------------------------------------------------------------ ObjectLocator

TBostream& operator<<(TBostream& strm, const ObjectLocator& l) {
    strm << l.iiop_version;
    strm << l.host.in();
    return strm << static_cast<unsigned short>(l.port) << l.object_key;
}

TBistream& operator>>(TBistream& strm, ObjectLocator& l) {
    unsigned short port = 0;
    strm >> l.iiop_version;
    readString(strm, l.host);
    strm >> port >> l.object_key;
    l.port = port;
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ObjectLocator& l) {
    if (writeStreamForm(os, l)) return os;
    openStruct(os, "IIOP::ObjectLocator");
    blockField(os, "iiop_version", l.iiop_version);
    field(os, "host", textOf(l.host.in()));
    field(os, "port", l.port);
    blockField(os, "object_key", l.object_key);
    closeStruct(os);
    return os;
}

CORBA_OctetSequence* ObjectLocator::convert() const {
    ZEBIIOPstream s;
    s.newOutEncapsulation();
    TBostream& out = s;
    out << static_cast<unsigned char>(BYTE_ORDER) << *this;
    return copyOutput(s);
}

ObjectLocator* ObjectLocator::copy() const {
    ObjectLocator* c = new ObjectLocator;
    c->iiop_version = iiop_version;
    c->host = host.in();
    c->port = port;
    c->object_key = object_key;
    return c;
}

ObjectLocator* ObjectLocator::convert(const CORBA_OctetSequence& data,
                                      std::vector<TaggedComponent>* components) {
    ZEBIIOPstream s;
    // The stream only reads the bytes; it does not own them.
    s.set_read_buffer(const_cast<char*>(reinterpret_cast<const char*>(data.get_buffer())),
                      data.length(), 0);
    std::unique_ptr<ObjectLocator> loc(new ObjectLocator);
    TBistream& in = s;
    unsigned char order = 0;
    in >> order;
    s.byteOrder(order);
    in >> *loc;
    if (components && loc->iiop_version.major == 1 && loc->iiop_version.minor >= 1) {
        // Each component is at least eight bytes, so a lying count runs out
        // of data long before it costs time or memory.
        CORBA::ULong count = 0;
        in >> count;
        for (CORBA::ULong i = 0; i < count; ++i) {
            components->emplace_back();
            in >> components->back().tag >> components->back().component_data;
        }
    }
    return loc.release();
}

}  // namespace IIOP

namespace IOP {

TBostream& operator<<(TBostream& strm, const TaggedProfile& p) {
    return strm << static_cast<unsigned long>(p.tag) << p.profile_data;
}

TBistream& operator>>(TBistream& strm, TaggedProfile& p) {
    unsigned long tag = 0;
    strm >> tag >> p.profile_data;
    p.tag = static_cast<CORBA::ULong>(tag);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const TaggedProfile& p) {
    if (writeStreamForm(os, p)) return os;
    openStruct(os, "IOP::TaggedProfile");
    field(os, "tag", p.tag);
    blockField(os, "profile_data", p.profile_data);
    closeStruct(os);
    return os;
}

TBostream& operator<<(TBostream& strm, const ProfileSequence& s) {
    s.write(strm);
    return strm;
}

TBistream& operator>>(TBistream& strm, ProfileSequence& s) {
    s.read(strm);
    return strm;
}

std::ostream& operator<<(std::ostream& os, const ProfileSequence& s) {
    if (writeStreamForm(os, s)) return os;
    printSequence(os, "IOP::ProfileSequence", s);
    return os;
}

TBostream& operator<<(TBostream& strm, const IOR& ior) {
    strm << ior.type_id.in();
    return strm << ior.profiles;
}

TBistream& operator>>(TBistream& strm, IOR& ior) {
    readString(strm, ior.type_id);
    return strm >> ior.profiles;
}

std::ostream& operator<<(std::ostream& os, const IOR& ior) {
    if (writeStreamForm(os, ior)) return os;
    openStruct(os, "IOP::IOR");
    field(os, "type_id", textOf(ior.type_id.in()));
    blockField(os, "profiles", ior.profiles);
    closeStruct(os);
    return os;
}

}  // namespace IOP
