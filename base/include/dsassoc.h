// Small element classes of the collections: DSAssoc (a key and a value, the
// element of a dictionary), DSLink (a node of a linked list) and DSWrapper
// (a resource that carries a plain pointer it does not own).
#ifndef KELVANOR_DSASSOC_H
#define KELVANOR_DSASSOC_H

#include <kelvanor/tbresrc.h>

// Holds a reference to its key and its value. It hashes and compares as its
// key, and is equal both to another association with an equal key and to a
// bare key, so a dictionary can be searched with either.
class DSAssoc : public DSResource {
    TB_DECLARE_CLASS(DSAssoc);

public:
    DSAssoc(DSResource& k, DSResource& v);
    // Key then value, each as a tagged object.
    explicit DSAssoc(TBistream& strm);
    ~DSAssoc() override;
    DSAssoc(const DSAssoc&) = delete;
    DSAssoc& operator=(const DSAssoc&) = delete;

    unsigned hash() const override;
    int compare(const TBObject& other) const override;
    bool isEqual(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

    // Referenced; null only after a faulty read from a stream.
    DSResource* key;
    DSResource* value;
};

// A list node. Holds a reference to its value and acts as the value for
// hashing, comparing and writing; the list owns the node itself.
class DSLink : public DSResource {
    TB_DECLARE_CLASS(DSLink);

public:
    explicit DSLink(DSResource& v, DSLink* n = nullptr);
    // A link goes on a stream as its value, as a tagged object.
    explicit DSLink(TBistream& strm);
    ~DSLink() override;
    DSLink(const DSLink&) = delete;
    DSLink& operator=(const DSLink&) = delete;

    unsigned hash() const override;
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

    DSLink* next;
    DSResource* value;  // referenced; null only after a faulty read
};

// Carries a pointer without owning it: the wrapper may outlive its target
// and the other way round. Identity is the address.
class DSWrapper : public DSResource {
    TB_DECLARE_CLASS(DSWrapper);

public:
    explicit DSWrapper(void* p = nullptr) : value(p) {}
    explicit DSWrapper(TBistream& strm);

    unsigned hash() const override;  // low 32 bits of the address
    // Sign of the difference of the two addresses; -1 against another class.
    int compare(const TBObject& other) const override;
    // Writes 4 bytes of the address; see the .cc for what survives a read.
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;  // "OBJECT ADDRESS: " and the address

    void* value;
};

#endif
