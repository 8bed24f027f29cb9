// TBudpstream: one object per UDP datagram, in the binary object form behind
// a length word. Each datagram stands alone: the object tables are cleared
// around every message, and there is no queue and no resumption. It is the
// transport of the directory agent's protocol, and it broadcasts a datagram
// to the local networks.
#ifndef KELVANOR_TBUDPSTR_H
#define KELVANOR_TBUDPSTR_H

#include <kelvanor/tbcrypt.h>

struct sockaddr_in;
class TBipcbuf;
class TBipcstream;
class TBTransObject;

class TBudpstream {
public:
    enum UDPReturnCode {
        OK = 0,
        NO_HOST = -1000,
        NOT_OPEN = -999,
        ALREADY_OPEN = -998,
        TOO_LARGE = -997,
        NOT_CONNECTED = -995,
        CONNECTED = -994,
        REFUSED = -993,  // ECONNREFUSED: the peer's port is closed
        CRYPT_FAILED = -992,
        DECRYPT_COPY_FAILED = -991,
        BAD_MESSAGE = -990,  // length mismatch, short write, or no object
        SYSCALL_FAILED = -989,
        NOTHING_TO_READ = -988
    };
    // The receive size: a longer datagram arrives cut and is refused.
    static constexpr int kPacketSize = 8192;

    TBudpstream();
    // Takes ownership of both streams.
    TBudpstream(TBipcstream& in, TBipcstream& out);
    virtual int overflow(int n);  // status TOO_LARGE, -1
    virtual int underflow();      // -1
    virtual ~TBudpstream();
    TBudpstream(const TBudpstream&) = delete;
    TBudpstream& operator=(const TBudpstream&) = delete;

    void useStream(TBipcstream& in, TBipcstream& out);

    // port 0: the system picks one. host: a dotted address, else (or null)
    // every interface.
    int bind(int port, const char* host);
    int close();
    int connect(const char* host, int port);
    int connect(const sockaddr_in* addr);
    int send(const TBTransObject& obj);  // connected streams only
    int send(const char* host, int port, const TBTransObject& obj);
    int send(const sockaddr_in* addr, const TBTransObject& obj);  // unconnected only
    // To the broadcast (or point-to-point peer) address of every interface
    // that is up and not loopback. 0 when none qualifies: then nothing left.
    int broadcast(const TBTransObject& obj, int port);
    // The object of the next datagram, the caller's; null with a status.
    // from (may be null) gets the sender.
    TBTransObject* receive(sockaddr_in* from);
    TBTransObject* receive(int& status, sockaddr_in* from);
    void blocking(int on);
    void crypt(TBCrypt* c) { _crypt.crypt(c); }
    void reportErrors(int on) { _report = on; }

    int fd() const { return _fd; }
    int port() const { return _port; }
    int status() const { return _status; }
    int isOpen() const { return _open; }

private:
    int fail(int status, const char* text, bool sys);
    int _writeIntoBuffer(const TBTransObject& obj);
    int _readIntoBuffer(sockaddr_in* from);
    int _broadcast(int port);
    void sent();

    TBipcstream* _in;   // owned
    TBipcstream* _out;  // owned
    int _port = 0;
    int _fd = -1;
    TBipcbuf* _inBuf;   // owned; read area of kPacketSize bytes
    TBipcbuf* _outBuf;  // owned; write area of kPacketSize bytes
    int _open = 0;
    int _connected = 0;
    int _blocking = 0;
    int _report = 0;
    TBCryptHook _crypt;
    int _status = 0;
};

#endif
