// The scrambling hook: default scramblers that change nothing, and the step
// that the transports run around each message.
#include "tbcrypt.h"

#include <cstring>
#include <initializer_list>

#include "tbipcstr.h"

namespace {
constexpr int kLengthWord = 4;
constexpr int kSecondReadSize = 1024;
}  // namespace

TBCryptBuffer::~TBCryptBuffer() {}

char* TBEncryptBuffer::dataPtr() const { return _buf->write_base + kLengthWord; }
int TBEncryptBuffer::dataLength() const {
    return static_cast<int>(_buf->write_ptr - _buf->write_base) - kLengthWord;
}
int TBEncryptBuffer::setDataLength(int n) {
    if (maxBufferSize() < n) return -99;
    _buf->write_ptr = dataPtr() + n;
    return -98;
}
int TBEncryptBuffer::maxBufferSize() const { return _buf->write_size - kLengthWord; }
int TBEncryptBuffer::reallocBuffer(int n) { return _buf->expand_write(n + kLengthWord) ? -100 : -98; }

char* TBDecryptBuffer::dataPtr() const { return _buf->read_base + kLengthWord; }
int TBDecryptBuffer::dataLength() const {
    return static_cast<int>(_buf->read_end - _buf->read_ptr) - kLengthWord;
}
int TBDecryptBuffer::setDataLength(int n) {
    if (maxBufferSize() < n) return -99;
    _buf->read_end = dataPtr() + n;
    return -98;
}
int TBDecryptBuffer::maxBufferSize() const { return _buf->read_size - kLengthWord; }
int TBDecryptBuffer::reallocBuffer(int n) { return _buf->expand_read(n + kLengthWord) ? -100 : -98; }

TBCrypt::~TBCrypt() {}

TBCrypt::TBCryptRC TBCrypt::encrypt(TBCryptBuffer&) { return 0; }
TBCrypt::TBCryptRC TBCrypt::decrypt(TBCryptBuffer&) { return 0; }

namespace {
int copyData(TBCryptBuffer& from, TBCryptBuffer& to) {
    int n = from.dataLength();
    // A target too small for the data is the scrambler's to grow; the
    // default grows it rather than write past its end.
    if (n > to.maxBufferSize() && to.reallocBuffer(n) != -100) return 1;
    if (n > 0) std::memmove(to.dataPtr(), from.dataPtr(), n);
    to.setDataLength(n);
    return 0;
}
}  // namespace

TBCrypt::TBCryptRC TBCrypt::encrypt(TBCryptBuffer& from, TBCryptBuffer& to) {
    return copyData(from, to);
}
TBCrypt::TBCryptRC TBCrypt::decrypt(TBCryptBuffer& from, TBCryptBuffer& to) {
    return copyData(from, to);
}

TBCryptHook::~TBCryptHook() {
    TBResource::unref(_crypt);
    for (TBCryptBuffer* b : {static_cast<TBCryptBuffer*>(_encrypt), static_cast<TBCryptBuffer*>(_decrypt)}) {
        if (!b) continue;
        delete b->buffer();
        delete b;
    }
}

void TBCryptHook::crypt(TBCrypt* c) {
    TBResource::ref(c);
    TBResource::unref(_crypt);
    _crypt = c;
}

int TBCryptHook::encrypt(TBipcbuf*& buf) {
    if (!_crypt) return 0;
    TBEncryptBuffer data(buf);
    TBResource::ref(&data);  // on the stack: no unref may delete it
    if (_crypt->inPlace()) return _crypt->encrypt(data) ? 1 : 0;
    if (!_encrypt) {
        _encrypt = new TBEncryptBuffer(new TBipcbuf(buf->write_size, kSecondReadSize));
        TBResource::ref(_encrypt);
    }
    TBipcbuf* to = _encrypt->buffer();
    to->write_ptr = to->write_base;
    if (_crypt->encrypt(data, *_encrypt)) return 2;
    // The scrambled copy goes out; the old buffer takes the next copy.
    _encrypt->buffer(buf);
    buf = to;
    return 0;
}

int TBCryptHook::decrypt(TBipcbuf*& buf) {
    if (!_crypt) return 0;
    TBDecryptBuffer data(buf);
    TBResource::ref(&data);
    if (_crypt->inPlace()) return _crypt->decrypt(data) ? 1 : 0;
    if (!_decrypt) {
        _decrypt = new TBDecryptBuffer(new TBipcbuf(buf->read_size, kSecondReadSize));
        TBResource::ref(_decrypt);
    }
    TBipcbuf* to = _decrypt->buffer();
    to->read_ptr = to->read_end = to->read_base;
    if (_crypt->decrypt(data, *_decrypt)) return 2;
    // The 4 bytes before the data (a length word, or on TCP the body's first
    // word) are not the scrambler's: they go across as they are.
    std::memcpy(to->read_base, buf->read_base, kLengthWord);
    // The copy's data start behind a length word like the original's; the
    // reader takes up at the same offset.
    to->read_ptr = to->read_base + (buf->read_ptr - buf->read_base);
    _decrypt->buffer(buf);
    buf = to;
    return 0;
}
