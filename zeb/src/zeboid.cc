// Object keys of this broker: encoding, decoding, and the owning holder.
#include "zeboid.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "giop.h"
#include "zebstrm.h"

namespace {

constexpr char kMagic[3] = {'Z', 'E', 'B'};
// Byte order, magic and tag: the least a key of ours can hold.
constexpr CORBA::ULong kHeaderSize = 12;

// Ends the process when a holder's condition fails. It is a program fault,
// so it is checked in release builds as well.
void check(bool ok, const char* text) {
    if (ok) return;
    std::fprintf(stderr, "Assertion failed: %s\n", text);
    std::fflush(stderr);
    std::abort();
}

// Points a scratch stream at the key (not copied, not owned), reads the
// byte-order octet into the stream's data order and checks the magic.
bool openKey(ZEBIIOPstream& s, const CORBA_OctetSequence& key) {
    if (key.length() < kHeaderSize) return false;
    s.set_read_buffer(const_cast<char*>(reinterpret_cast<const char*>(key.get_buffer())),
                      key.length(), 0);
    TBistream& in = s;
    unsigned char order = 0;
    char magic[3];
    in >> order;
    s.byteOrder(order);
    in.get(magic, 3);
    return std::memcmp(magic, kMagic, 3) == 0;
}

}  // namespace

// ----------------------------------------------------------------- ZEBObjectId

ZEBObjectId::~ZEBObjectId() {}

unsigned char ZEBObjectId::isZEBKey(const CORBA_OctetSequence& key) {
    ZEBIIOPstream s;
    return openKey(s, key) ? 1 : 0;
}

ZEBObjectId* ZEBObjectId::convert(const CORBA_OctetSequence& key) {
    ZEBIIOPstream s;
    if (!openKey(s, key)) return nullptr;
    TBistream& in = s;
    unsigned long tag = 0;
    in >> tag;
    switch (tag) {
    case ID_PERSISTENT: return new ZEBPersistentId(in);
    case ID_TRANSIENT: return new ZEBTransientId(in);
    case ID_KEY: return new ZEBKeyId(in);
    case ID_SERVICE: return new ZEBServiceId(in);
    default: return nullptr;
    }
}

CORBA_OctetSequence* ZEBObjectId::convert() const {
    ZEBIIOPstream s;
    s.newOutEncapsulation();
    TBostream& out = s;
    out << static_cast<unsigned char>(IIOP::BYTE_ORDER);
    out.put(kMagic, 3);
    out << static_cast<unsigned long>(_type);
    write(out);

    const CORBA::ULong n = static_cast<CORBA::ULong>(s.outLength());
    CORBA_OctetSequence* key = new CORBA_OctetSequence(n);
    key->length(n);
    std::memcpy(key->get_buffer(), s.outData(), n);
    return key;
}

// -------------------------------------------------------------- the four kinds

ZEBPersistentId::ZEBPersistentId(const char* interface_name, const char* object_name)
    : ZEBObjectId(ID_PERSISTENT), _interface(interface_name), _object(object_name) {}

ZEBPersistentId::ZEBPersistentId(TBistream& strm)
    : ZEBObjectId(ID_PERSISTENT), _interface(strm), _object(strm) {}

void ZEBPersistentId::write(TBostream& strm) const {
    _interface.write(strm);
    _object.write(strm);
}

ZEBTransientId::ZEBTransientId(const char* interface_name, CORBA::ULong unique_id,
                               CORBA::ULong creation_time)
    : ZEBObjectId(ID_TRANSIENT), _interface(interface_name), _uniqueId(unique_id),
      _time(creation_time) {}

ZEBTransientId::ZEBTransientId(TBistream& strm)
    : ZEBObjectId(ID_TRANSIENT), _interface(strm), _uniqueId(0), _time(0) {
    unsigned long id = 0, time = 0;
    strm >> id >> time;
    _uniqueId = static_cast<CORBA::ULong>(id);
    _time = static_cast<CORBA::ULong>(time);
}

void ZEBTransientId::write(TBostream& strm) const {
    _interface.write(strm);
    strm << static_cast<unsigned long>(_uniqueId) << static_cast<unsigned long>(_time);
}

ZEBKeyId::ZEBKeyId(CORBA::ULong unique_id) : ZEBObjectId(ID_KEY), _uniqueId(unique_id) {}

ZEBKeyId::ZEBKeyId(TBistream& strm) : ZEBObjectId(ID_KEY), _uniqueId(0) {
    unsigned long id = 0;
    strm >> id;
    _uniqueId = static_cast<CORBA::ULong>(id);
}

void ZEBKeyId::write(TBostream& strm) const { strm << static_cast<unsigned long>(_uniqueId); }

ZEBServiceId::ZEBServiceId(const char* service_name, const CORBA_OctetSequence& reference_data)
    : ZEBObjectId(ID_SERVICE), _service(service_name), _data(reference_data) {}

ZEBServiceId::ZEBServiceId(TBistream& strm) : ZEBObjectId(ID_SERVICE), _service(strm) {
    strm >> _data;
}

void ZEBServiceId::write(TBostream& strm) const {
    _service.write(strm);
    strm << _data;
}

// ------------------------------------------------------------- ZEBObjectId_var

ZEBObjectId_var& ZEBObjectId_var::operator=(ZEBObjectId* p) {
    if (p != _ptr) {
        delete _ptr;
        _ptr = p;
    }
    return *this;
}

ZEBObjectId* ZEBObjectId_var::operator->() const {
    check(_ptr != nullptr, "_ptr != NULL");
    return _ptr;
}

ZEBObjectId& ZEBObjectId_var::operator*() const {
    check(_ptr != nullptr, "_ptr != NULL");
    return *_ptr;
}

ZEBObjectId_var::operator ZEBPersistentId*() const {
    check(_ptr == nullptr || _ptr->type() == ZEBObjectId::ID_PERSISTENT,
          "(_ptr == NULL || _ptr->type() == ZEBObjectId::ID_PERSISTENT)");
    return static_cast<ZEBPersistentId*>(_ptr);
}

ZEBObjectId_var::operator ZEBServiceId*() const {
    check(_ptr == nullptr || _ptr->type() == ZEBObjectId::ID_SERVICE,
          "(_ptr == NULL || _ptr->type() == ZEBObjectId::ID_SERVICE)");
    return static_cast<ZEBServiceId*>(_ptr);
}

ZEBObjectId* ZEBObjectId_var::_retn() {
    ZEBObjectId* p = _ptr;
    _ptr = nullptr;
    return p;
}
