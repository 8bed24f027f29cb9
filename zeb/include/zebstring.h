// Two small value classes of the broker runtime used as dictionary keys:
// ZEBString, a heap string that travels as a counted byte block with its
// NUL, and ZEBUniqueId, a number.
#ifndef KELVANOR_ZEBSTRING_H
#define KELVANOR_ZEBSTRING_H

#include <cstdint>

#include <kelvanor/tbresrc.h>

// The text is never null; the buffer may be larger than _length + 1 after an
// assignment from a shorter string.
class ZEBString : public DSResource {
    TB_DECLARE_CLASS(ZEBString);

public:
    ZEBString();
    ZEBString(const char* s);  // null gives ""
    ZEBString(const ZEBString& other);
    // Reads the count (length + 1) and that many bytes.
    explicit ZEBString(TBistream& strm);
    ~ZEBString() override;

    // Reallocates only when the present length is below the new one.
    ZEBString& operator=(const ZEBString& other);
    ZEBString& operator=(const char* s);

    // Concatenations, as a new string.
    ZEBString operator&(const ZEBString& other) const;
    ZEBString operator&(const char* s) const;
    ZEBString& operator&=(const ZEBString& other);
    ZEBString& operator&=(const char* s);

    bool operator==(const ZEBString& other) const;
    bool operator!=(const ZEBString& other) const { return !(*this == other); }

    const char* string() const { return _string; }
    operator const char*() const { return _string; }
    unsigned length() const { return _length; }

    // unsigned long length + 1, then the bytes with the NUL.
    void write(TBostream& strm) const override;
    // The text in double quotes.
    void prettyPrint(TBostream& strm) const override;
    // Same value as TBString's hash of the same text.
    unsigned hash() const override;
    // strcmp; -1 against an object that is not a ZEBString.
    int compare(const TBObject& other) const override;

private:
    void assign(const char* s, unsigned len);
    void append(const char* s, unsigned len);

    char* _string;     // owned, NUL-terminated at _length
    unsigned _length;
};

class ZEBUniqueId : public DSResource {
    TB_DECLARE_CLASS(ZEBUniqueId);

public:
    explicit ZEBUniqueId(unsigned long id = 0) : _id(static_cast<uint32_t>(id)) {}
    explicit ZEBUniqueId(TBistream& strm);

    unsigned long id() const { return _id; }

    void write(TBostream& strm) const override;  // unsigned long
    void prettyPrint(TBostream& strm) const override;  // "ID: n" and a newline
    unsigned hash() const override { return _id; }
    // This id less the other's; -1 against an object that is not a ZEBUniqueId.
    int compare(const TBObject& other) const override;

private:
    uint32_t _id;
};

#endif
