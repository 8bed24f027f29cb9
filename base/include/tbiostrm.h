// Typed object streams. TBistream and TBostream are concrete: their value
// operations speak a text form over a platform istream/ostream. Concrete
// transports (file, buffer, CDR) replace the value operations and keep the
// object encoding of this file: tags ":" (new class or null), "#" (known
// class number), "@" (back reference to an object number).
//
// On this platform C++ long is 64 bits; the long operators carry 32-bit
// values on every binary stream so that wire and file forms stay fixed.
#ifndef KELVANOR_TBIOSTRM_H
#define KELVANOR_TBIOSTRM_H

#include <iosfwd>

class TBTransObject;
class TBTypeInfo;
class TBInTbl;   // reader's identity tables, see tbiotbl.h
class TBOutTbl;  // writer's identity tables, see tbiotbl.h

class TBostream {
public:
    explicit TBostream(std::ostream& os);
    virtual void storeObject(const TBTransObject& obj);
    virtual void clearOutClassTbl();
    virtual void clearOutObjTbl();
    virtual ~TBostream();
    virtual const char* className() const;
    // Compares the address given with the _class_name of this class and its
    // bases; the text is not looked at.
    virtual int isKindOf(const char* name) const;
    virtual TBostream& writeTransObj(const TBTransObject* obj);

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
    virtual TBostream& operator<<(const TBTransObject& obj);  // no tag

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
    TBOutTbl& outTable() { return *_outTbl; }

    static const char _class_name[];

protected:
    TBostream();  // for derived transports: no platform stream

private:
    TBostream(const TBostream&) = delete;
    TBostream& operator=(const TBostream&) = delete;

    std::ostream* _os;   // null for derived transports
    TBOutTbl* _outTbl;   // owned
};

class TBistream {
public:
    explicit TBistream(std::istream& is);
    virtual TBTransObject* readObject(const TBTypeInfo* info);
    virtual void clearInClassTbl();
    virtual void clearInObjTbl();
    virtual ~TBistream();
    virtual TBTransObject* readTransObj();
    // Gives obj the next object number; -1 if it was numbered already.
    virtual int addToTbl(TBTransObject& obj);
    virtual const char* className() const;
    virtual int isKindOf(const char* name) const;

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
    // Reads a string into buffer; max counts the terminator too.
    virtual TBistream& getCString(char* buffer, unsigned max);

    std::istream* istreamPtr() const { return _is; }
    TBInTbl& inTable() { return *_inTbl; }

    static const char _class_name[];

protected:
    TBistream();  // for derived transports: no platform stream

private:
    TBistream(const TBistream&) = delete;
    TBistream& operator=(const TBistream&) = delete;

    std::istream* _is;  // null for derived transports
    TBInTbl* _inTbl;    // owned
};

// Writes a newline.
TBostream& endl(TBostream& strm);
inline TBostream& operator<<(TBostream& strm, TBostream& (*manip)(TBostream&)) {
    return manip(strm);
}

#endif
