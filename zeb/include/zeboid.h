// Object keys of this broker. A key is a small CDR encapsulation:
//   offset 0  byte-order octet of the writer
//   offset 1  the three bytes "ZEB"
//   offset 4  tag, unsigned long
//   offset 8  body, by tag (see the classes below)
// ZEBObjectId and its subclasses are the parsed forms; convert() goes from
// one to the other. Keys of other brokers are legal and simply not ours.
#ifndef KELVANOR_ZEBOID_H
#define KELVANOR_ZEBOID_H

#include <kelvanor/corba.h>
#include <kelvanor/sequence.h>
#include <kelvanor/zebstring.h>

class TBistream;
class TBostream;

class ZEBObjectId {
public:
    enum IdType : CORBA::ULong {
        ID_PERSISTENT = 0,  // interface name, object name
        ID_TRANSIENT = 1,   // interface name, unique id, creation time
        ID_KEY = 3,         // unique id alone; tag 2 is not assigned
        ID_SERVICE = 4      // service name, reference data
    };

    virtual ~ZEBObjectId();
    // The body after the tag.
    virtual void write(TBostream& strm) const = 0;

    IdType type() const { return _type; }

    // True for a key of at least 12 octets that carries the magic; the tag
    // is not looked at.
    static unsigned char isZEBKey(const CORBA_OctetSequence& key);
    // The id of a key, owned by the caller. Null for a key under 12 octets,
    // without the magic, or with a tag not listed above. A key with the
    // magic that ends early throws CORBA_MARSHAL.
    static ZEBObjectId* convert(const CORBA_OctetSequence& key);
    // The key of this id in the host's byte order, owned by the caller.
    CORBA_OctetSequence* convert() const;

protected:
    explicit ZEBObjectId(IdType type) : _type(type) {}

private:
    ZEBObjectId(const ZEBObjectId&) = delete;
    ZEBObjectId& operator=(const ZEBObjectId&) = delete;

    IdType _type;
};

// An object created or bound under a name.
class ZEBPersistentId : public ZEBObjectId {
public:
    ZEBPersistentId(const char* interface_name, const char* object_name);
    explicit ZEBPersistentId(TBistream& strm);  // reads the body

    const ZEBString& interface_name() const { return _interface; }
    const ZEBString& object_name() const { return _object; }
    void write(TBostream& strm) const override;

private:
    ZEBString _interface;
    ZEBString _object;
};

// An object without a name. The creation time makes the key go stale when
// a restarted server hands out the same unique id again.
class ZEBTransientId : public ZEBObjectId {
public:
    ZEBTransientId(const char* interface_name, CORBA::ULong unique_id,
                   CORBA::ULong creation_time);
    explicit ZEBTransientId(TBistream& strm);

    const ZEBString& interface_name() const { return _interface; }
    CORBA::ULong unique_id() const { return _uniqueId; }
    CORBA::ULong creation_time() const { return _time; }
    void write(TBostream& strm) const override;

private:
    ZEBString _interface;
    CORBA::ULong _uniqueId;
    CORBA::ULong _time;
};

// The short form a server hands out itself: 12 bytes of key.
class ZEBKeyId : public ZEBObjectId {
public:
    explicit ZEBKeyId(CORBA::ULong unique_id);
    explicit ZEBKeyId(TBistream& strm);

    CORBA::ULong unique_id() const { return _uniqueId; }
    void write(TBostream& strm) const override;

private:
    CORBA::ULong _uniqueId;
};

// An object registered with a service, such as a naming context.
class ZEBServiceId : public ZEBObjectId {
public:
    ZEBServiceId(const char* service_name, const CORBA_OctetSequence& reference_data);
    explicit ZEBServiceId(TBistream& strm);

    const ZEBString& service_name() const { return _service; }
    const CORBA_OctetSequence& reference_data() const { return _data; }
    void write(TBostream& strm) const override;

private:
    ZEBString _service;
    CORBA_OctetSequence _data;
};

// Owns one id. The conversions check what they hand out and end the
// process with the failed condition's text when it does not hold; they do
// so in every build, not only in debug ones.
class ZEBObjectId_var {
public:
    ZEBObjectId_var() : _ptr(nullptr) {}
    ZEBObjectId_var(ZEBObjectId* p) : _ptr(p) {}
    ~ZEBObjectId_var() { delete _ptr; }

    ZEBObjectId_var& operator=(ZEBObjectId* p);

    ZEBObjectId* operator->() const;  // "_ptr != NULL"
    ZEBObjectId& operator*() const;   // "_ptr != NULL"
    operator ZEBObjectId*() const { return _ptr; }
    // Settles `if (var)`, which the pointer conversions would make ambiguous.
    explicit operator bool() const { return _ptr != nullptr; }
    // Null stays null; another tag ends the process.
    operator ZEBPersistentId*() const;
    operator ZEBServiceId*() const;

    ZEBObjectId* ptr() const { return _ptr; }
    ZEBObjectId* _retn();

private:
    ZEBObjectId_var(const ZEBObjectId_var&) = delete;
    ZEBObjectId_var& operator=(const ZEBObjectId_var&) = delete;

    ZEBObjectId* _ptr;  // owned; null or a new ZEBObjectId
};

#endif
