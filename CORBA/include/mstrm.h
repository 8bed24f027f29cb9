// CDR encoders and decoders. The memory family reads and writes a plain block
// of bytes: CORBA_MarshalInBuffer decodes a block, CORBA_MarshalOutBuffer
// encodes into a growing block. CORBA_MarshalStream and GIOPstream are the
// abstract bases of the connection streams, which add message framing.
// All of them are object streams, so generated marshalling code runs over
// any of them through the virtual operators of TBistream and TBostream.
#ifndef KELVANOR_MSTRM_H
#define KELVANOR_MSTRM_H

#include <kelvanor/corba.h>
#include <kelvanor/tbiostrm.h>

class CORBA_TypeCode;
namespace IIOP {
struct MessageHeader;
}
namespace ZEB_EXT {
struct ConnectionInfo;
}

// Reads CDR from a block. Values are aligned relative to the alignment count
// (bytes read since it was last reset), not to addresses. Short data throws
// CORBA_MARSHAL (minor 0, completed NO) after zero-filling the bytes of the
// target that were to be read.
//
// Invariant: cursor <= size; the bytes still to read lie in
// [block + cursor, block + size).
class CORBA_MarshalInBuffer : public TBistream {
public:
    // Does not take the block: set the owns flag to have it freed (with
    // CORBA::string_free) by the destructor.
    CORBA_MarshalInBuffer(char* block, CORBA::ULong length);
    ~CORBA_MarshalInBuffer() override;

    const char* className() const override;
    int isKindOf(const char* name) const override;

    // A count of 0 gives a null pointer. A null target is allocated with
    // CORBA::string_alloc and belongs to the caller; a non-null target must
    // have room for the string and a terminator, and the string is never
    // longer than what is left of the block. A string whose count covers no
    // NUL keeps all its bytes and gets one behind them.
    TBistream& operator>>(char*& s) override;
    TBistream& operator>>(char& c) override;
    TBistream& operator>>(unsigned char& c) override;
    TBistream& operator>>(short& v) override;
    TBistream& operator>>(unsigned short& v) override;
    TBistream& operator>>(int& v) override;
    TBistream& operator>>(unsigned int& v) override;
    TBistream& operator>>(long& v) override;
    TBistream& operator>>(unsigned long& v) override;
    TBistream& operator>>(float& v) override;
    TBistream& operator>>(double& v) override;

    int get() override;
    TBistream& get(char& c) override;
    TBistream& get(unsigned char& c) override;
    // Raw bytes: no alignment, no swapping. The one place that reads the block.
    TBistream& get(char* p, unsigned n) override;
    TBistream& get(unsigned char* p, unsigned n) override;
    // Arrays align once (not at all for n == 0), move in one copy, then
    // swap each element if the order differs. C++ long takes 4 bytes.
    TBistream& get(short* p, unsigned n) override;
    TBistream& get(unsigned short* p, unsigned n) override;
    TBistream& get(int* p, unsigned n) override;
    TBistream& get(unsigned int* p, unsigned n) override;
    TBistream& get(long* p, unsigned n) override;
    TBistream& get(unsigned long* p, unsigned n) override;
    TBistream& get(float* p, unsigned n) override;
    TBistream& get(double* p, unsigned n) override;
    // With max above the count: the string and a NUL at buf[count]. Else the
    // first max bytes, no NUL, and the rest of the string is skipped.
    TBistream& getCString(char* buf, unsigned max) override;

    // The string in place, without a copy; null for a count of 0. The
    // pointer lives as long as the block.
    char* getString();
    // The next n elements of `size` bytes in place, after the alignment to
    // size, when they are all there and in the host's order; null, with
    // nothing consumed, otherwise. The pointer lives as long as the block.
    const char* inPlace(unsigned size, CORBA::ULong n);

    char* buffer() const { return _block; }
    CORBA::ULong size() const { return _size; }
    CORBA::ULong cursor() const { return _cursor; }
    CORBA::ULong alignment() const { return _align; }
    void reset_alignment() { _align = 0; }
    // Byte-order flag of the data, in the sense of CORBA::ByteOrder: values
    // are swapped when it differs from the host's marker.
    CORBA::Boolean byte_order() const { return _byteOrder; }
    void byte_order(CORBA::Boolean order) { _byteOrder = order ? 1 : 0; }
    CORBA::Boolean owns_buffer() const { return _owns; }
    void owns_buffer(CORBA::Boolean owns) { _owns = owns; }

    static const char _class_name[];

private:
    template <class T>
    void readValue(T& v);
    template <class Wire, class T>
    void getArray(T* p, unsigned n);
    void skipPad(unsigned size);
    [[noreturn]] void shortData();

    char* _block;
    CORBA::ULong _size;
    CORBA::ULong _cursor;  // next byte to read
    CORBA::ULong _align;   // bytes read since the alignment origin
    CORBA::Boolean _owns;
    CORBA::Boolean _byteOrder;
};

// Writes CDR in host order to a block that grows as needed. The block comes
// from CORBA::string_alloc. The owns flag starts false: when marshalling is
// done the creator takes buffer() and length() and the destructor leaves the
// block alone. Set the flag to have the destructor free it instead.
//
// Invariant: cursor <= capacity; the encoded bytes are [block, block + cursor).
class CORBA_MarshalOutBuffer : public TBostream {
public:
    static constexpr CORBA::ULong initial_size = 255;

    CORBA_MarshalOutBuffer();
    ~CORBA_MarshalOutBuffer() override;

    const char* className() const override;
    int isKindOf(const char* name) const override;

    // A null string is a count of 0 and no bytes; any other string is its
    // length with the NUL, then its bytes with the NUL.
    TBostream& operator<<(const char* s) override;
    TBostream& operator<<(char c) override;
    TBostream& operator<<(unsigned char c) override;
    TBostream& operator<<(short v) override;
    TBostream& operator<<(unsigned short v) override;
    TBostream& operator<<(int v) override;
    TBostream& operator<<(unsigned int v) override;
    TBostream& operator<<(long v) override;
    TBostream& operator<<(unsigned long v) override;
    TBostream& operator<<(float v) override;
    TBostream& operator<<(double v) override;
    TBostream& operator<<(const TBTransObject* obj) override;
    TBostream& operator<<(const TBTransObject& obj) override;

    TBostream& put(char c) override;
    // Raw bytes: the one place that writes and grows the block.
    TBostream& put(const char* p, unsigned n) override;
    TBostream& put(const unsigned char* p, unsigned n) override;
    // Arrays as on reading: one alignment, one copy; C++ long as 4 bytes.
    TBostream& put(const short* p, unsigned n) override;
    TBostream& put(const unsigned short* p, unsigned n) override;
    TBostream& put(const int* p, unsigned n) override;
    TBostream& put(const unsigned int* p, unsigned n) override;
    TBostream& put(const long* p, unsigned n) override;
    TBostream& put(const unsigned long* p, unsigned n) override;
    TBostream& put(const float* p, unsigned n) override;
    TBostream& put(const double* p, unsigned n) override;
    TBostream& putCString(const char* s) override;

    char* buffer() const { return _block; }
    CORBA::ULong length() const { return _cursor; }
    CORBA::ULong capacity() const { return _capacity; }
    CORBA::ULong alignment() const { return _align; }
    void reset_alignment() { _align = 0; }
    CORBA::Boolean owns_buffer() const { return _owns; }
    void owns_buffer(CORBA::Boolean owns) { _owns = owns; }

    static const char _class_name[];

private:
    CORBA_MarshalOutBuffer(const CORBA_MarshalOutBuffer&) = delete;
    CORBA_MarshalOutBuffer& operator=(const CORBA_MarshalOutBuffer&) = delete;

    template <class T>
    void writeValue(T v);
    template <class Wire, class T>
    void putArray(const T* p, unsigned n);
    void pad(unsigned size);

    char* _block;
    CORBA::ULong _capacity;
    CORBA::ULong _cursor;  // bytes written
    CORBA::ULong _align;   // bytes written since the alignment origin
    CORBA::Boolean _owns;
};

// A stream that reads and writes the messages of a connection. The value
// operators of both bases follow the CDR rules of the memory family; what
// this class adds is the life of a message. Failures are CORBA system
// exceptions.
class CORBA_MarshalStream : public TBistream, public TBostream {
public:
    ~CORBA_MarshalStream() override;

    const char* className() const override;
    int isKindOf(const char* name) const override;

    // Drop all buffered input / pending output and restart the alignment
    // origin of that direction.
    virtual void rewindInBuffer() = 0;
    virtual void rewindOutBuffer() = 0;
    // Input first, then output.
    virtual void rewindBuffer();
    virtual void flushRead() = 0;
    // Timeouts in seconds, 0 for no limit. Transport failures raise
    // CORBA_COMM_FAILURE, time-outs CORBA_NO_RESPONSE.
    virtual void sendMessage(unsigned long timeout) = 0;
    virtual void receiveMessage(unsigned long timeout) = 0;
    virtual void sendAndWaitForReply(unsigned long timeout) = 0;
    // TypeCodes may be written as indirections to an earlier occurrence in
    // the same message. getTypeCode gives a TypeCode the caller releases.
    virtual void putTypeCode(CORBA_TypeCode* tc) = 0;
    virtual void getTypeCode(CORBA_TypeCode*& tc) = 0;

    static const char _class_name[];

protected:
    CORBA_MarshalStream() = default;
};

// A marshal stream that speaks GIOP messages.
class GIOPstream : public CORBA_MarshalStream {
public:
    ~GIOPstream() override;

    const char* className() const override;
    int isKindOf(const char* name) const override;

    virtual void close() = 0;
    // True while connected, listening or attached.
    virtual CORBA::Boolean open() const = 0;
    // The header of the current input message.
    virtual const IIOP::MessageHeader& msgHeader() const = 0;
    // Start a new alignment origin for an encapsulation; nothing here.
    virtual void newInEncapsulation() {}
    virtual void newOutEncapsulation() {}
    // Start a new message; the expected size is only a hint.
    virtual void beginWrite(unsigned long expectedSize);
    // Throw away the unread rest of the current input message; nothing here.
    virtual void discardCurMsg() {}
    // A new record that the caller deletes; null when there is no peer.
    virtual ZEB_EXT::ConnectionInfo* peerInfo();
    // Takes back the four bytes written last, to rewrite a count.
    virtual void unputULong() = 0;
    virtual void blocking(unsigned char /*on*/) {}
    virtual int fd() const { return -1; }
    virtual CORBA::Boolean hasMoreData() const { return 0; }

    static const char _class_name[];

protected:
    GIOPstream() = default;
};

#endif
