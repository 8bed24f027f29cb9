// Binary object stream over plain memory. TBipcbuf is a pair of memory
// areas (one to read, one to write) with their positions; TBipcstream writes
// the primitive values of an object stream into a TBipcbuf, each in whole
// 4-byte slots, integers in network order and floating-point values least
// significant byte first. The transports that own the buffer move the bytes.
#ifndef KELVANOR_TBIPCSTR_H
#define KELVANOR_TBIPCSTR_H

#include <kelvanor/tbiostrm.h>

// Two areas with read and write positions. A read-only buffer is
// TBipcbuf(0, size), a write-only one TBipcbuf(size, 0).
//
// Invariants: readable bytes lie in [read_ptr, read_end), and
// read_base <= read_ptr <= read_end <= read_base + read_size;
// written bytes lie in [write_base, write_ptr), and
// write_ptr <= write_base + write_size.
// The fields are public: transports fill and drain the areas directly.
class TBipcbuf {
public:
    // Allocates and zeroes each area of non-zero size and owns both. Running
    // out of memory here ends the process.
    TBipcbuf(int writeSize, int readSize);
    // Takes foreign areas; they are freed with the buffer (by delete[]) only
    // if owned.
    TBipcbuf(char* write, int writeSize, char* read, int readSize, int owned);
    virtual ~TBipcbuf();

    // A new zeroed read area of n bytes. The unread count (read_end -
    // read_ptr) is copied from the START of the old area, so callers move
    // the unread bytes there first. 1 on success, 0 if out of memory.
    virtual int expand_read(int n);
    // A bigger zeroed write area keeping all written bytes and the offset of
    // write_ptr: twice the old size if n is below it, else old size + 2n.
    // 1 on success, 0 if out of memory (the buffer is then unchanged).
    virtual int expand_write(int n);
    // Called by a writer that lacks n bytes of room: 1, or -1 if growing failed.
    virtual int overflow(int n);
    // Called by a reader that lacks data: prints a line and returns -1.
    virtual int underflow();

    // Frees the old areas if owned, takes the new ones, and resets the three
    // positions to the starts of their areas (nothing readable).
    void set_buffer(char* write, int writeSize, char* read, int readSize, int owned);

    int readAvail() const { return static_cast<int>(read_end - read_ptr); }
    int writeRoom() const { return static_cast<int>(write_base + write_size - write_ptr); }
    int writeCount() const { return static_cast<int>(write_ptr - write_base); }

    char* read_base;   // start of the read area, may be null
    char* write_base;  // start of the write area, may be null
    int read_size;     // bytes in the read area
    int write_size;    // bytes in the write area
    char* read_ptr;    // next byte to be read
    char* read_end;    // one past the last byte filled by the transport
    char* write_ptr;   // next byte to be written
    TBipcbuf* next;    // link used by TBipcbufList
    int owned;         // the areas are freed with the buffer

private:
    TBipcbuf(const TBipcbuf&) = delete;
    TBipcbuf& operator=(const TBipcbuf&) = delete;

    void freeAreas();

    // An area that expand_read/expand_write allocated belongs to us even when
    // the buffer was built on foreign memory (owned 0); without these flags it
    // would leak.
    bool _grownRead = false;
    bool _grownWrite = false;
};

// A singly linked chain of buffers through TBipcbuf::next. The list does not
// own its buffers, except in removeAndFreeAll.
class TBipcbufList {
public:
    TBipcbufList() = default;

    void add(TBipcbuf* buf);       // appends; buf->next becomes null
    void addFirst(TBipcbuf* buf);  // prepends
    TBipcbuf* at(int i) const;
    TBipcbuf* removeFirst();       // null if empty
    TBipcbuf* removeLast();        // null if empty
    void removeAll();              // forgets all, frees nothing
    void removeAndFreeAll();       // deletes every buffer, then forgets all

    TBipcbuf* first() const { return _first; }
    TBipcbuf* last() const { return _last; }
    int count() const { return _count; }

private:
    TBipcbufList(const TBipcbufList&) = delete;
    TBipcbufList& operator=(const TBipcbufList&) = delete;

    TBipcbuf* _first = nullptr;
    TBipcbuf* _last = nullptr;
    int _count = 0;
};

// The binary object stream. It writes to and reads from the buffer that its
// owner attaches; it never owns that buffer. With no buffer attached every
// operation does nothing. A read that finds too few bytes calls the buffer's
// underflow() and leaves the target unchanged; a write that finds too little
// room calls overflow() and drops the value if that fails. Nothing throws.
class TBipcstream : public TBistream, public TBostream {
public:
    TBipcstream() = default;
    explicit TBipcstream(TBipcbuf* buf) : _buf(buf) {}
    ~TBipcstream() override;

    void attach(TBipcbuf* buf) { _buf = buf; }
    TBipcbuf* buffer() const { return _buf; }
    const TBipcbuf* inBuffer() const override { return _buf; }

    const char* className() const override;
    int isKindOf(const char* name) const override;

    // Reading. operator>>(char*&) reads a whole string: into a non-null
    // pointer the caller must have made room for it; a null pointer gets a
    // new[] array that the caller deletes.
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
    // Copies at most max bytes with strncpy semantics (no terminator when the
    // text is longer); the stream moves past the whole string anyway.
    TBistream& getCString(char* to, unsigned max) override;

    // Writing.
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
    // The size of the text with its NUL rounded up to 4, then the text.
    // A null pointer is written as the empty string.
    TBostream& putCString(const char* s) override;

    // Clear the tables of both directions.
    void clearClassTables();
    void clearObjectTables();

    static const char _class_name[];

private:
    // Room for n bytes to read or write; each calls the buffer's hook when
    // short, and gives the place to use, or null when the value is lost.
    char* readSpace(unsigned long n);
    char* writeSpace(unsigned long n);

    TBipcbuf* _buf = nullptr;  // not owned
};

#endif
