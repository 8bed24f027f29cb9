// TBString: a heap string with its length, streamed in the quoted text form
// of the object streams.
#ifndef KELVANOR_TBSTRING_H
#define KELVANOR_TBSTRING_H

#include <kelvanor/tbtinfo.h>

class TBString : public TBObject {
    TB_DECLARE_CLASS(TBString);

public:
    TBString();
    TBString(const char* s);  // null gives ""
    TBString(const TBString& other);
    // The length, then the quoted string.
    explicit TBString(TBistream& strm);
    ~TBString() override;

    // Keeps the buffer when the present length is not below the new one.
    TBString& operator=(const TBString& other);
    TBString& operator=(const char* s);

    // Concatenations: & gives a new string, &= appends.
    TBString operator&(const TBString& other) const;
    TBString operator&(const char* s) const;
    TBString& operator&=(const TBString& other);
    TBString& operator&=(const char* s);

    const char* string() const { return _string; }
    operator const char*() const { return _string; }
    unsigned length() const { return _length; }

    unsigned hash() const override;  // 0 for "", else TBTypeDict::strHash
    // strcmp; -1 against an object that is not a TBString.
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    void assign(const char* s, unsigned len);
    void append(const char* s, unsigned len);

    char* _string;     // never null; NUL at _length
    unsigned _length;
};

#endif
