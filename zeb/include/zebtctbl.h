// The per-message TypeCode tables of a connection stream: which TypeCode
// was written or read at which offset of the message, so that a repeat
// within one message can go as an indirection. TypeCodes are matched by
// identity of the object, not by structure.
#ifndef KELVANOR_ZEBTCTBL_H
#define KELVANOR_ZEBTCTBL_H

#include <cstddef>
#include <utility>
#include <vector>

#include <kelvanor/dsdict.h>
#include <kelvanor/tbresrc.h>

class CORBA_TypeCode;

// One TypeCode object as a dictionary key: it hashes and compares by
// address, and holds a reference to the TypeCode while it lives.
class ZEBTCWrapper : public DSResource {
    TB_DECLARE_CLASS(ZEBTCWrapper);

public:
    explicit ZEBTCWrapper(CORBA_TypeCode* tc);  // duplicates tc
    ~ZEBTCWrapper() override;
    ZEBTCWrapper(const ZEBTCWrapper&) = delete;
    ZEBTCWrapper& operator=(const ZEBTCWrapper&) = delete;

    CORBA_TypeCode* typeCode() const { return _tc; }  // not counted for the caller

    unsigned hash() const override;
    // The sign of the difference of the two addresses; -1 against another class.
    int compare(const TBObject& other) const override;
    void write(TBostream&) const override {}
    void prettyPrint(TBostream&) const override {}

private:
    CORBA_TypeCode* _tc;  // counted
};

class ZEBTypeCodeTable {
public:
    ZEBTypeCodeTable() : _byOffset(16), _byTypeCode(16) {}
    ZEBTypeCodeTable(const ZEBTypeCodeTable&) = delete;
    ZEBTypeCodeTable& operator=(const ZEBTypeCodeTable&) = delete;

    // Enters the pair both ways; a TypeCode or an offset already there keeps
    // its first partner.
    void addTypeCode(CORBA_TypeCode* tc, long offset);
    long offsetOf(CORBA_TypeCode* tc) const;        // -1 if absent
    CORBA_TypeCode* typeCodeAt(long offset) const;  // not counted; null if absent
    void removeAll();
    unsigned size() const { return _byOffset.size(); }

private:
    DSDictionary _byOffset;    // ZEBUniqueId -> ZEBTCWrapper
    DSDictionary _byTypeCode;  // ZEBTCWrapper -> ZEBUniqueId
};

// The same pairs for the encapsulated form, whose offsets reach only within
// one top-level TypeCode: a handful of entries, emptied for each, where a
// flat list beats the dictionaries. Holds a reference to each TypeCode.
class ZEBTypeCodeList {
public:
    ZEBTypeCodeList() = default;
    ~ZEBTypeCodeList() { removeAll(); }
    ZEBTypeCodeList(const ZEBTypeCodeList&) = delete;
    ZEBTypeCodeList& operator=(const ZEBTypeCodeList&) = delete;

    // The first entry of a TypeCode or an offset wins, as in the table.
    void add(CORBA_TypeCode* tc, unsigned long offset);
    long offsetOf(const CORBA_TypeCode* tc) const;           // -1 if absent
    CORBA_TypeCode* typeCodeAt(unsigned long offset) const;  // not counted; null if absent
    void removeAll();

private:
    std::vector<std::pair<CORBA_TypeCode*, unsigned long>> _items;
};

#endif
