// Typed object streams. TBistream and TBostream are concrete: their value
// operations speak a text form over a platform istream/ostream. Concrete
// transports (file, buffer, CDR) replace the value operations and keep the
// object encoding of this file: tags ":" (new class or null), "#" (known
// class number), "@" (back reference to an object number).
//
// The encoding goes only through the virtual primitives: a tag through
// operator<<(char), a number through operator<<(int), a class name through
// putCString. Object numbers live for one top-level writeTransObj (nested
// writes share them); class numbers live until clearOutClassTbl(). None of
// the operations throws by itself; a transport's primitives may, and the
// tables stay consistent when they do. Faults of a read are reported on cerr
// and give null or leave the target as it was.
//
// On this platform C++ long is 64 bits; the long operators carry 32-bit
// values on every stream (the text form included) so that wire and file
// forms stay fixed.
#ifndef KELVANOR_TBIOSTRM_H
#define KELVANOR_TBIOSTRM_H

#include <iosfwd>
#include <memory>

class TBTransObject;
class TBTypeInfo;
class TBInTbl;   // reader's identity tables, see tbiotbl.h
class TBipcbuf;  // see tbipcstr.h
class TBOutTbl;  // writer's identity tables, see tbiotbl.h

class TBostream {
public:
    explicit TBostream(std::ostream& os);
    // Writes the object's body: prettyPrint() when the target is cout,
    // write() otherwise.
    virtual void storeObject(const TBTransObject& obj);
    virtual void clearOutClassTbl();
    virtual void clearOutObjTbl();
    virtual ~TBostream();
    virtual const char* className() const;
    // Compares the address given with the _class_name of this class and its
    // bases; the text is not looked at.
    virtual int isKindOf(const char* name) const;
    // Null: ":" and "::". Seen before in this top-level write: "@" and its
    // number. Otherwise ":" and the class name, or "#" and the class
    // number, then the body.
    virtual TBostream& writeTransObj(const TBTransObject* obj);

    // Text form: values as decimal text and a blank, unsigned char as a
    // number, char as itself; strings as their length and a quoted, escaped
    // form (on cout/cerr just the text); arrays of char raw.
    virtual TBostream& operator<<(const char* s);
    virtual TBostream& operator<<(char c);
    virtual TBostream& operator<<(unsigned char c);
    virtual TBostream& operator<<(short v);
    virtual TBostream& operator<<(unsigned short v);
    virtual TBostream& operator<<(int v);
    virtual TBostream& operator<<(unsigned int v);
    virtual TBostream& operator<<(long v);
    virtual TBostream& operator<<(unsigned long v);
    virtual TBostream& operator<<(float v);
    virtual TBostream& operator<<(double v);
    virtual TBostream& operator<<(const TBTransObject* obj);  // writeTransObj
    // Numbers the object and writes its body with no tag: the reader builds
    // it in place with the constructor from the stream.
    virtual TBostream& operator<<(const TBTransObject& obj);

    virtual TBostream& put(char c);
    virtual TBostream& put(const char* p, unsigned n);
    virtual TBostream& put(const unsigned char* p, unsigned n);
    virtual TBostream& put(const short* p, unsigned n);
    virtual TBostream& put(const unsigned short* p, unsigned n);
    virtual TBostream& put(const int* p, unsigned n);
    virtual TBostream& put(const unsigned int* p, unsigned n);
    virtual TBostream& put(const long* p, unsigned n);
    virtual TBostream& put(const unsigned long* p, unsigned n);
    virtual TBostream& put(const float* p, unsigned n);
    virtual TBostream& put(const double* p, unsigned n);
    virtual TBostream& putCString(const char* s);

    std::ostream* ostreamPtr() const { return _os; }
    TBOutTbl& outTable();

    static const char _class_name[];

protected:
    TBostream();  // for derived transports: no platform stream

private:
    TBostream(const TBostream&) = delete;
    TBostream& operator=(const TBostream&) = delete;

    std::ostream* _os;   // null for derived transports
    // Made at the first object written: streams that carry only values
    // (every CDR message, every object key) never pay for the tables.
    std::unique_ptr<TBOutTbl> _outTbl;
};

class TBistream {
public:
    explicit TBistream(std::istream& is);
    // Calls the class's factory; null for a class without one.
    virtual TBTransObject* readObject(const TBTypeInfo* info);
    virtual void clearInClassTbl();
    virtual void clearInObjTbl();
    virtual ~TBistream();
    // Reads what writeTransObj wrote. The caller owns a new object; a back
    // reference gives an object made earlier in the same top-level read.
    // Null for a null object and after any fault.
    virtual TBTransObject* readTransObj();
    // Gives obj the next object number; -1 if it was numbered already.
    virtual int addToTbl(TBTransObject& obj);
    virtual const char* className() const;
    virtual int isKindOf(const char* name) const;

    // Replaces s (which must come from new[] or be null) by a new buffer
    // holding the string; from cin, extracts a word into s as it is.
    virtual TBistream& operator>>(char*& s);
    virtual TBistream& operator>>(char& c);
    virtual TBistream& operator>>(unsigned char& c);
    virtual TBistream& operator>>(short& v);
    virtual TBistream& operator>>(unsigned short& v);
    virtual TBistream& operator>>(int& v);
    virtual TBistream& operator>>(unsigned int& v);
    virtual TBistream& operator>>(long& v);
    virtual TBistream& operator>>(unsigned long& v);
    virtual TBistream& operator>>(float& v);
    virtual TBistream& operator>>(double& v);

    virtual int get();
    virtual TBistream& get(char& c);
    virtual TBistream& get(unsigned char& c);
    virtual TBistream& get(char* p, unsigned n);
    virtual TBistream& get(unsigned char* p, unsigned n);
    virtual TBistream& get(short* p, unsigned n);
    virtual TBistream& get(unsigned short* p, unsigned n);
    virtual TBistream& get(int* p, unsigned n);
    virtual TBistream& get(unsigned int* p, unsigned n);
    virtual TBistream& get(long* p, unsigned n);
    virtual TBistream& get(unsigned long* p, unsigned n);
    virtual TBistream& get(float* p, unsigned n);
    virtual TBistream& get(double* p, unsigned n);
    // Reads a string into buffer; max counts the terminator too. On a fault
    // (reported on cerr) the buffer holds what was read, cut to max - 1.
    virtual TBistream& getCString(char* buffer, unsigned max);

    std::istream* istreamPtr() const { return _is; }
    // The memory buffer a binary buffer stream reads from; null for every
    // other stream. Readers of counted data use it to see a stream that
    // reports short data to nobody run dry.
    virtual const TBipcbuf* inBuffer() const { return nullptr; }
    TBInTbl& inTable();

    static const char _class_name[];

protected:
    TBistream();  // for derived transports: no platform stream

private:
    TBistream(const TBistream&) = delete;
    TBistream& operator=(const TBistream&) = delete;

    std::istream* _is;  // null for derived transports
    // Made at the first object read, as on the writing side.
    std::unique_ptr<TBInTbl> _inTbl;
};

// Writes a newline.
TBostream& endl(TBostream& strm);
inline TBostream& operator<<(TBostream& strm, TBostream& (*manip)(TBostream&)) {
    return manip(strm);
}

#endif
