// One outgoing connection to one server address, shared by every reference
// to an object there. It is a dispatcher handler, so that a server closing
// an idle connection is seen while no call waits, and it pings its server
// on a keep-alive timer when -ORBkeepalive asks for it. ZEBORB keeps these
// connections by address.
#ifndef KELVANOR_ZEBOCLNT_H
#define KELVANOR_ZEBOCLNT_H

#include <sys/time.h>

#include <vector>

#include <kelvanor/dsset.h>
#include <kelvanor/giop.h>
#include <kelvanor/iohandle.h>

class DSProvider;
class ZEBIIOPstream;
class ZEBStubInfo;
struct CORBA_BindOptions;
namespace IOP {
struct IOR;
}

class ZEBORBClient : public dpIOHandler {
public:
    // Connects to the provider's address (connect_wait of options; none for
    // null options), enters the client in the ORB's table and links it for
    // reading. The client starts with no references: the first holder
    // counts it up. Connect failures pass as thrown by the stream:
    // CORBA_COMM_FAILURE (errno), CORBA_NO_RESPONSE, CORBA_BAD_PARAM for an
    // unknown host.
    static ZEBORBClient* create(DSProvider* provider, const CORBA_BindOptions* options);
    // The same for an object of any broker, under the provider name
    // "FORIEGN OBJECT" (the spelling is the one peers know).
    static ZEBORBClient* create(const IIOP::ObjectLocator& locator,
                                const CORBA_BindOptions* options);
    // Stops the timer, leaves the dispatcher and the ORB's table, closes.
    ~ZEBORBClient() override;
    ZEBORBClient(const ZEBORBClient&) = delete;
    ZEBORBClient& operator=(const ZEBORBClient&) = delete;

    // Counting by holders (stubs, and callers that keep a client across a
    // call). The client is deleted when a holder lowers the count to 0 or
    // below; a new client that nobody took is dropped with one release.
    static void duplicate(ZEBORBClient* c) {
        if (c) ++c->_references;
    }
    static void release(ZEBORBClient* c);
    long references() const { return _references; }

    // A stub bound here joins / leaves the set. Joining starts the
    // keep-alive timer if it is wanted and not running. Leaving does
    // nothing once the client is closing.
    void add(ZEBStubInfo* stub);
    void remove(ZEBStubInfo* stub);
    unsigned stubCount() const { return _stubs.size(); }

    // The connection a new call goes out on. GIOP lets replies come in any
    // order, but this broker reads one reply per wait: a call made from a
    // nested dispatch while a call further down the stack waits here would
    // read, and lose, that call's reply. Such a call gets a spare
    // connection to the same server instead (made on demand, kept for
    // reuse, closed with this one); otherwise it is this client. Spares are
    // in no table and carry no __bind, so a server counts its clients as
    // before. A spare that cannot connect passes the stream's exception.
    ZEBORBClient* forCall(const CORBA_BindOptions* options);
    // A call reads a reply here: from its first read to its last. While
    // any does, or a wait for input is under way, the connection is in use.
    void reading(int delta) { _readers += delta; }
    // Deferred requests sent here and not yet answered. A spare with one
    // counts as in use: no call reads there, and it is not closed as idle.
    void deferred(int delta) { _deferred += delta; }
    bool inUse() const;

    // The locate exchange for key, waiting send_wait + receive_wait of
    // options. OBJECT_HERE, or OBJECT_FORWARD with ior set to a new IOR the
    // caller owns. An unknown object, an unknown status or an answer that
    // is no LocateReply is CORBA_NO_IMPLEMENT; transport faults and
    // time-outs pass as the stream throws them.
    IIOP::LocateStatusType locate(const CORBA_OctetSequence& key, IOP::IOR*& ior,
                                  const CORBA_BindOptions* options);
    // Closes the connection. The client stays in the table and its stubs
    // stay attached; they find it closed at their next request.
    void close();
    bool closing() const { return _closing; }

    // Input while no call reads: a reply nobody waits for, or the server
    // closing. -1 once the connection failed and was closed.
    int inputReady(int fd) override;
    // The keep-alive: pings the server through a bound stub.
    void timerExpired(long sec, long usec) override;

    ZEBIIOPstream* stream() const { return _stream; }
    const DSProvider& provider() const { return *_provider; }
    // The descriptor this client was linked under; -1 once closed.
    int fd() const { return _fd; }

private:
    ZEBORBClient(ZEBIIOPstream* stream, DSProvider* provider);
    void startTimer(unsigned long seconds);
    void stopTimer();
    bool linkedHere() const;
    ZEBStubInfo* firstStub() const;
    // Reads what comes to a spare while no call waits there: replies of
    // deferred requests go to them, anything else is dropped.
    int drain();
    void closeSpares();
    IIOP::LocateStatusType locateHere(const CORBA_OctetSequence& key, IOP::IOR*& ior,
                                      const CORBA_BindOptions* options);

    ZEBIIOPstream* _stream;  // owned
    DSProvider* _provider;   // one reference held
    DSSet _stubs;            // a DSWrapper around each ZEBStubInfo* bound here
    bool _timerRunning = false;
    timeval _created;        // never renewed: the ping period counts from here
    bool _closing = false;   // set once by close()
    long _references = 0;
    int _fd;                 // linked under this descriptor while open
    int _readers = 0;        // calls reading a reply here
    int _deferred = 0;       // deferred requests waiting for a reply here
    bool _spare = false;     // made by forCall for another client
    std::vector<ZEBORBClient*> _spares;  // counted; see forCall
};

// Holds a client for the time of a call that may run the dispatcher, in
// which its last other holder may let go; with `reading`, also marks a call
// reading a reply there, so that calls made meanwhile take a spare.
class ZEBClientHold {
public:
    explicit ZEBClientHold(ZEBORBClient* c, bool reading = false) : _c(c), _reading(reading) {
        ZEBORBClient::duplicate(c);
        if (_reading) c->reading(1);
    }
    ~ZEBClientHold() {
        if (_reading) _c->reading(-1);
        ZEBORBClient::release(_c);
    }
    ZEBClientHold(const ZEBClientHold&) = delete;
    ZEBClientHold& operator=(const ZEBClientHold&) = delete;

private:
    ZEBORBClient* _c;
    bool _reading;
};

#endif
