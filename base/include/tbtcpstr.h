// TBtcpstream: whole objects over one TCP connection, each framed by a
// big-endian length word that counts itself. A read or a write that a
// non-blocking socket cut off resumes at the next call; messages that cannot
// go out yet wait in a priority queue. The object tables live as long as the
// connection, so both ends must see the same run of messages from the first.
// The owner registers the descriptor with the dispatcher, if at all.
#ifndef KELVANOR_TBTCPSTR_H
#define KELVANOR_TBTCPSTR_H

#include <kelvanor/tbcrypt.h>
#include <kelvanor/tbpqueue.h>

class TBipcbuf;
class TBipcstream;
class TBTransObject;

class TBtcpstream {
public:
    enum TCPReturnCode {
        OK = 0,
        PARTIAL_READ = -1000,  // call receive again to go on
        NOT_OPEN = -999,
        IN_USE = -998,
        NO_HOST = -997,
        BROKEN = -996,
        BAD_FD = -995,
        NO_OBJECT = -994,      // a whole message held no object
        SYSCALL_FAILED = -993, // also a length word above kMaxMessage
        NOTHING_TO_READ = -992,
        QUEUED = -991,
        QUEUE_FULL = -990,
        NOTHING_TO_FLUSH = -989,
        EMPTY_BUFFER = -988,
        WOULD_BLOCK = -987,    // part of the message is still to go
        TIMED_OUT = -986,
        CRYPT_FAILED = -985,
        DECRYPT_COPY_FAILED = -984
    };
    // A message longer than this is refused before anything is allocated.
    static constexpr int kMaxMessage = 16 << 20;

    TBtcpstream(int bufferSize = 1024, int maxQueueSize = 50);
    // Takes ownership of both streams; the queue starts with 16 places.
    TBtcpstream(TBipcstream& in, TBipcstream& out, int bufferSize, int maxQueueSize);
    virtual ~TBtcpstream();
    TBtcpstream(const TBtcpstream&) = delete;
    TBtcpstream& operator=(const TBtcpstream&) = delete;

    void useStream(TBipcstream& in, TBipcstream& out);

    int listen(int port, const char* host);
    int connect(const char* host, int port);
    int connect(unsigned address, int port);  // address in network order
    int Accept(int& fd);
    TBtcpstream* acceptConnection();  // the caller's, or null
    int attach(int fd);
    int close();
    void blocking(int on);

    // priority: 10 is what callers pass; lower numbers leave the queue first.
    int send(const TBTransObject& obj, unsigned char priority);
    int send();  // flushes what waits
    TBTransObject* receive();
    TBTransObject* receive(int& status);
    // seconds -1: no limit. The object is the caller's.
    TBTransObject* waitForObject(int& status, long seconds);
    void maxQueueSize(int n);  // raises the limit only
    void crypt(TBCrypt* c) { _crypt.crypt(c); }
    void reportErrors(int on) { _report = on; }

    int fd() const { return _fd; }
    int port() const { return _port; }
    const char* hostName() const { return _host; }
    int status() const { return _status; }
    int isOpen() const { return _open; }
    int queued() const { return _queue.count(); }

private:
    int fail(int status, const char* text, bool sys);
    int encode(TBipcbuf*& buf, const TBTransObject& obj);
    int addToQueue(const TBTransObject& obj, unsigned char priority);
    int _send();
    int readSome(int want, const char* brokenText, const char* readText);
    int _readIntoBuffer();
    int takeLength();
    int _decrypt();
    void setOptions(bool keepAlive);

    TBipcstream* _in;   // owned
    TBipcstream* _out;  // owned
    TBPriorityQueue _queue;  // each entry owns a TBipcbuf
    TBipcbuf* _inBuf;   // owned; the body of the message being read from its start
    TBipcbuf* _outBuf;  // owned; the message going out
    char _host[101];
    int _port = 0;
    int _fd = -1;
    int _maxQueue;
    int _open = 0;
    int _report = 0;
    int _reading = 0;   // a message is partly read
    int _writing = 0;   // the output buffer is partly written
    int _written = 0;   // bytes of it that went out
    int _expected = -1; // length word of the message being read, -1 unknown
    int _held = 0;      // bytes of the present piece (header or body) read
    int _blocking = 1;
    TBCryptHook _crypt;
    int _status = 0;
};

#endif
