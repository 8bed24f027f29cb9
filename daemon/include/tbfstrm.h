// Object stream on a file descriptor: every value is its raw memory image in
// the machine's byte order, unpadded, with C++ long and unsigned long held in
// 4 bytes so that files keep one form on every platform. Strings are a 4-byte
// length and the bytes without a terminator. The object encoding (tags,
// numbers, class names) of the base streams runs on top unchanged.
//
// Reads never fail visibly: whatever the file cannot supply reads as zero
// bytes. On a regular file writes are collected in a buffer that is handed
// to the system before close() returns, before any read and when the stream
// goes away, so the bytes on the file are those of unbuffered writes; that
// buffer is what makes writing a repository fast. Any other descriptor
// (pipe, socket, terminal) has a reader waiting on the far side, so every
// write goes through at once. On a seekable
// descriptor reads are served from a read-ahead buffer; before a write, at
// close() and when the stream goes away the descriptor is moved back to
// where the reader stands. Nobody else may move or use the descriptor while
// the stream holds buffered bytes.
#ifndef KELVANOR_TBFSTRM_H
#define KELVANOR_TBFSTRM_H

#include <cstddef>
#include <memory>

#include <kelvanor/tbiostrm.h>

class TBfstream : public TBistream, public TBostream {
public:
    // Adopts an open descriptor; the stream never closes it by itself.
    explicit TBfstream(int fd);
    // open(name, mode, 0777); the stream owns the descriptor if that works.
    // The repository uses O_RDWR | O_CREAT.
    TBfstream(const char* name, int mode);
    // Flushes; closes the descriptor if the stream opened it.
    ~TBfstream() override;

    // Flushes and closes the descriptor. open() and operator! keep their
    // answer afterwards; the stream drops later writes and reads zeroes.
    void close();
    bool open() const { return _fd >= 0; }
    bool operator!() const { return _fd < 0; }
    int descriptor() const { return _fd; }

    // Hands the buffered bytes to the system. False once any write of this
    // stream has failed (the bytes concerned are lost, as with a short
    // write); the flag stays set.
    bool flush();
    bool writeFailed() const { return _writeFailed; }
    // Zero bytes supplied so far for reads beyond what the file held.
    unsigned long madeUpBytes() const { return _madeUp; }

    // Reading past the end of the file is meant for truncated files, where a
    // few zero values stand in for the missing tail. A read that would need
    // more made-up bytes than this in all comes from a corrupt length or
    // count; it throws CORBA_MARSHAL (completed NO) instead of going on.
    static constexpr unsigned long kMadeUpLimit = 1UL << 20;

    const char* className() const override;
    // True for the address of the _class_name of TBfstream, TBistream or
    // TBostream.
    int isKindOf(const char* name) const override;

    // A null string is written as the empty one (length 0).
    TBostream& operator<<(const char* s) override;
    TBostream& operator<<(char c) override;
    TBostream& operator<<(unsigned char c) override;
    TBostream& operator<<(short v) override;
    TBostream& operator<<(unsigned short v) override;
    TBostream& operator<<(int v) override;
    TBostream& operator<<(unsigned int v) override;
    TBostream& operator<<(long v) override;           // 4 bytes
    TBostream& operator<<(unsigned long v) override;  // 4 bytes
    TBostream& operator<<(float v) override;
    TBostream& operator<<(double v) override;
    TBostream& operator<<(const TBTransObject* obj) override;
    TBostream& operator<<(const TBTransObject& obj) override;

    TBostream& put(char c) override;
    TBostream& put(const char* p, unsigned n) override;
    TBostream& put(const unsigned char* p, unsigned n) override;
    TBostream& put(const short* p, unsigned n) override;
    TBostream& put(const unsigned short* p, unsigned n) override;
    TBostream& put(const int* p, unsigned n) override;
    TBostream& put(const unsigned int* p, unsigned n) override;
    TBostream& put(const long* p, unsigned n) override;
    TBostream& put(const unsigned long* p, unsigned n) override;
    TBostream& put(const float* p, unsigned n) override;
    TBostream& put(const double* p, unsigned n) override;
    TBostream& putCString(const char* s) override;

    // A null s gets a new[] buffer holding the string read. A non-null s is
    // filled in place and keeps its address; it must hold the length read
    // plus a terminator (getCString is the bounded form). Throws
    // CORBA_MARSHAL for a length the file cannot back (see kMadeUpLimit).
    TBistream& operator>>(char*& s) override;
    TBistream& operator>>(char& c) override;
    TBistream& operator>>(unsigned char& c) override;
    TBistream& operator>>(short& v) override;
    TBistream& operator>>(unsigned short& v) override;
    TBistream& operator>>(int& v) override;
    TBistream& operator>>(unsigned int& v) override;
    TBistream& operator>>(long& v) override;           // 4 bytes, sign-extended
    TBistream& operator>>(unsigned long& v) override;  // 4 bytes
    TBistream& operator>>(float& v) override;
    TBistream& operator>>(double& v) override;

    int get() override;  // one byte, 0 at the end of the file
    TBistream& get(char& c) override;
    TBistream& get(unsigned char& c) override;
    TBistream& get(char* p, unsigned n) override;
    TBistream& get(unsigned char* p, unsigned n) override;
    TBistream& get(short* p, unsigned n) override;
    TBistream& get(unsigned short* p, unsigned n) override;
    TBistream& get(int* p, unsigned n) override;
    TBistream& get(unsigned int* p, unsigned n) override;
    TBistream& get(long* p, unsigned n) override;
    TBistream& get(unsigned long* p, unsigned n) override;
    TBistream& get(float* p, unsigned n) override;
    TBistream& get(double* p, unsigned n) override;
    // Reads a string of length L. With max not 0 and L >= max, the buffer
    // gets the first max bytes and a terminator at buffer[max] (so it needs
    // max + 1 bytes) and the rest of the string is skipped; otherwise all L
    // bytes and a terminator. max 0 means the caller vouches for the room.
    TBistream& getCString(char* buffer, unsigned max) override;

    static const char _class_name[];

private:
    TBfstream(const TBfstream&) = delete;
    TBfstream& operator=(const TBfstream&) = delete;

    void putBytes(const void* p, size_t n);
    // Gives unread read-ahead back to the descriptor (seeks back over it).
    void dropReadAhead();
    // Refills the read-ahead buffer; the number of bytes now in it.
    size_t refill();
    // Fills n bytes of p: what the file gives, zeroes behind it.
    void getBytes(void* p, size_t n);
    // Reads up to n bytes; fewer only at the end of the file or on an error.
    size_t readUpTo(void* p, size_t n);
    void writeAll(const char* p, size_t n);
    void skipBytes(unsigned long n);
    // Accounts for n zero bytes handed out in place of file data.
    void madeUp(unsigned long n);
    // A new[] string of the next len bytes, held only as far as the file
    // really holds them (the rest would be zeroes and end the string anyway).
    char* readString(unsigned long len);

    static constexpr size_t kBufferSize = 64 * 1024;

    int _fd;             // negative if the open failed
    bool _owned;         // the stream opened the descriptor itself
    bool _closed;        // close() has run: the descriptor is not ours to use
    bool _writeFailed;
    unsigned long _madeUp;
    std::unique_ptr<char[]> _buffer;  // pending output in [0, _pending); made at the first write
    size_t _pending;
    // Read-ahead: unread input in [_rpos, _rend) of _rbuffer. Only one of
    // _pending and the read-ahead is ever non-empty.
    std::unique_ptr<char[]> _rbuffer;  // made at the first read
    size_t _rpos;
    size_t _rend;
    int _seekable;  // -1 not known yet, 0 no (read directly), 1 yes
    // Not a regular file: nothing is held back, _pending stays 0.
    bool _writeThrough;
};

#endif
