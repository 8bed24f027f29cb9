// Message scrambling hook of the object transports. A TBCrypt sees each
// encoded message between encoding and sending, and each received message
// before decoding, through a TBCryptBuffer over the transport's buffer. The
// defaults change nothing; nothing in the broker installs a scrambler.
#ifndef KELVANOR_TBCRYPT_H
#define KELVANOR_TBCRYPT_H

#include <kelvanor/tbresrc.h>

class TBipcbuf;

// The scrambler's view of one message. The first 4 bytes of the area are the
// length word and are left out of the data.
class TBCryptBuffer : public TBResource {
public:
    explicit TBCryptBuffer(TBipcbuf* buf) : _buf(buf) {}
    ~TBCryptBuffer() override;

    virtual char* dataPtr() const = 0;
    virtual int dataLength() const = 0;
    // -99 if n exceeds maxBufferSize() (nothing changes), else -98.
    virtual int setDataLength(int n) = 0;
    virtual int maxBufferSize() const = 0;
    // Room for n data bytes: -100 on success, -98 on failure.
    virtual int reallocBuffer(int n) = 0;

    TBipcbuf* buffer() const { return _buf; }
    void buffer(TBipcbuf* buf) { _buf = buf; }

protected:
    TBipcbuf* _buf;  // not owned
};

// The write area: what the transport has just encoded.
class TBEncryptBuffer : public TBCryptBuffer {
public:
    explicit TBEncryptBuffer(TBipcbuf* buf) : TBCryptBuffer(buf) {}
    char* dataPtr() const override;
    int dataLength() const override;
    int setDataLength(int n) override;
    int maxBufferSize() const override;
    int reallocBuffer(int n) override;
};

// The read area: what the transport has just received.
class TBDecryptBuffer : public TBCryptBuffer {
public:
    explicit TBDecryptBuffer(TBipcbuf* buf) : TBCryptBuffer(buf) {}
    char* dataPtr() const override;
    int dataLength() const override;
    int setDataLength(int n) override;
    int maxBufferSize() const override;
    int reallocBuffer(int n) override;
};

// Counted; a transport holds a reference. A result of 0 is success.
class TBCrypt : public TBResource {
public:
    typedef int TBCryptRC;
    explicit TBCrypt(int inPlace = 1) : _inPlace(inPlace) {}
    ~TBCrypt() override;

    // In place: change data where it lies. The defaults do nothing.
    virtual TBCryptRC encrypt(TBCryptBuffer& data);
    virtual TBCryptRC decrypt(TBCryptBuffer& data);
    // Into a second buffer: the defaults copy the data and set to's length.
    virtual TBCryptRC encrypt(TBCryptBuffer& from, TBCryptBuffer& to);
    virtual TBCryptRC decrypt(TBCryptBuffer& from, TBCryptBuffer& to);

    int inPlace() const { return _inPlace; }

private:
    int _inPlace;
};

// What the two transports share: the scrambler, its second buffers, and the
// step before sending and after receiving. Each transport maps a failure to
// its own status numbers.
class TBCryptHook {
public:
    TBCryptHook() = default;
    ~TBCryptHook();
    TBCryptHook(const TBCryptHook&) = delete;
    TBCryptHook& operator=(const TBCryptHook&) = delete;

    // Holds a reference to c (null removes the scrambler).
    void crypt(TBCrypt* c);
    TBCrypt* crypt() const { return _crypt; }

    // 0, 1 if scrambling failed, 2 if scrambling into the second buffer
    // failed. *buf may be swapped for the second buffer; the caller attaches
    // the one it gets back to its stream.
    int encrypt(TBipcbuf*& buf);
    int decrypt(TBipcbuf*& buf);

private:
    TBCrypt* _crypt = nullptr;             // counted
    TBEncryptBuffer* _encrypt = nullptr;   // owns its TBipcbuf; made on first use
    TBDecryptBuffer* _decrypt = nullptr;   // likewise
};

#endif
