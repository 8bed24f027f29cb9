// Reference counting for the base library's containers. TBResource is the
// bare count; DSResource is the usual element type of a collection: an
// object that hashes, compares and can be shared by several holders.
#ifndef KELVANOR_TBRESRC_H
#define KELVANOR_TBRESRC_H

#include <kelvanor/tbtinfo.h>

// Holders call ref() when they keep a pointer and unref() when they drop it.
// An object that nobody ever referenced is deleted by its first unref(), so
// a fresh temporary handed to a collection and taken out again goes away.
class TBResource {
public:
    TBResource() : _count(0) {}
    // A copy is a new object: it starts unreferenced.
    TBResource(const TBResource&) : _count(0) {}
    TBResource& operator=(const TBResource&) { return *this; }
    virtual ~TBResource();

    static void ref(TBResource* r) {  // null is tolerated
        if (r) ++r->_count;
    }
    static void unref(TBResource* r) {  // null is tolerated
        if (r) r->unref();
    }
    // Drops one reference; deletes the object when none is left, and also
    // when the count was 0 already.
    void unref();
    unsigned refCount() const { return _count; }

private:
    unsigned _count;  // holders of this object
};

// One reference for the life of a scope: taken when made, dropped on every
// way out, so that an object made for a call goes away after it.
template <class T>
class TBHeld {
public:
    explicit TBHeld(T* p) : _p(p) { TBResource::ref(_p); }
    ~TBHeld() { TBResource::unref(_p); }
    TBHeld(const TBHeld&) = delete;
    TBHeld& operator=(const TBHeld&) = delete;
    T* get() const { return _p; }
    T* operator->() const { return _p; }

private:
    T* _p;
};

// Base of collection elements. hash() defaults to 0 and compare() to -1, so
// a plain resource equals nothing but itself by address.
class DSResource : public TBObject, public TBResource {
    TB_DECLARE_CLASS(DSResource);

public:
    DSResource() {}
    explicit DSResource(TBistream& strm) : TBObject(strm) {}
    DSResource(const DSResource& other) : TBObject(other), TBResource(other) {}
    DSResource& operator=(const DSResource&) { return *this; }

    virtual void copyFrom(const DSResource& other);  // does nothing here
    unsigned hash() const override;
    int compare(const TBObject& other) const override;
};

// Reads one object from strm and returns it if it is a DSResource. Anything
// else (null, a fault, an object of another family) gives null; such an
// object is left alone, since it may already be referenced from elsewhere in
// the graph being read.
DSResource* DSreadResource(TBistream& strm);

#endif
