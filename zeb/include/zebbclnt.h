// The server side of one accepted connection: reads GIOP messages, hands
// requests to skeletons, writes replies, answers locate requests, and decides
// when the connection, and for unshared servers the process, ends.
#ifndef KELVANOR_ZEBBCLNT_H
#define KELVANOR_ZEBBCLNT_H

#include <functional>
#include <memory>
#include <vector>

#include <kelvanor/dsdict.h>
#include <kelvanor/giop.h>
#include <kelvanor/sequence.h>
#include <kelvanor/iohandle.h>
#include <kelvanor/zebstrm.h>

class CORBA_Object;
class CORBA_OctetSequence;
class CORBA_SystemException;
class TBostream;
class ZEBBOA;
class ZEBDeferredReply;
class ZEBGlobalTable;
class ZEBSkelInfo;
namespace ZEB_EXT {
struct ConnectionInfo;
}

// What a server program may install to hear of its clients (per skeleton,
// or process-wide in ZEBGlobalTable::_implEventHandler).
class ZEBImplEventHandler {
public:
    virtual ~ZEBImplEventHandler();
    // A client bound the object (__bind); principal may be null.
    virtual void bind(ZEB_EXT::ConnectionInfo* peer, CORBA_OctetSequence* principal,
                      CORBA_Object* obj) = 0;
    virtual void unbind(ZEB_EXT::ConnectionInfo* peer, CORBA_Object* obj) = 0;
    // The connection ended while the client was bound.
    virtual void clientGone(ZEB_EXT::ConnectionInfo* peer, CORBA_Object* obj) = 0;
    // Around each method call.
    virtual void preMethod(const ZEB_EXT::ConnectionInfo* peer, CORBA_OctetSequence* principal,
                           const char* operation, CORBA_Object* obj) = 0;
    virtual void postMethod(const ZEB_EXT::ConnectionInfo* peer, CORBA_OctetSequence* principal,
                            const char* operation, CORBA_Object* obj) = 0;
};

class ZEBBOAClient;

// The reply of the request being served, on the stack of request(); it
// travels through the skeleton as void* to CORBA_Object::_prepare_reply.
struct ZEBBOAClientData {
    explicit ZEBBOAClientData(ZEBBOAClient* client);

    ZEBBOAClient* _client;
    IIOP::ReplyHeader _reply;
    // The request's response_expected. The client gets a Reply exactly when
    // it asked for one, whatever the operation's IDL says: a reply written
    // without it is dropped by the stream, and a oneway operation asked for
    // one gets an empty reply once the servant returns.
    CORBA::ULong _with_header = 1;
    CORBA::ULong _prepared = 0;     // prepareReply has run for this request
    IIOP::MessageHeader _header;    // a Reply header in our byte order
    ZEBSkelInfo* _skel = nullptr;
    CORBA::ULong _run_hooks = 1;    // prepareReply calls sending_reply
    CORBA::Octet _byte_order = 0;   // of the request
    bool _deferred = false;         // the servant took the request (ZEBDeferredReply)
};

class ZEBBOAClient : public dpIOHandler {
public:
    // Adopts the accepted descriptor, joins the global set of connections
    // and links itself for reading.
    ZEBBOAClient(int fd, ZEBBOA* boa);
    // Unbinds every skeleton bound on this connection; if one of them is
    // unshared or per-method, the process ends here with status 0.
    ~ZEBBOAClient() override;
    ZEBBOAClient(const ZEBBOAClient&) = delete;
    ZEBBOAClient& operator=(const ZEBBOAClient&) = delete;

    // Reads what the socket holds without waiting and serves every message
    // that is whole; an unfinished one waits with the connection. A
    // negative result has deleted this object.
    int inputReady(int fd) override;
    // Sends queued replies. A negative result has deleted this object.
    int outputReady(int fd) override;
    // The connection's deadline: idle (-OAidle), an unfinished message that
    // has not moved for kStallSeconds, or queued replies that have not moved
    // for kOutputSeconds close it (this object is deleted).
    void timerExpired(long sec, long usec) override;

    static constexpr long kStallSeconds = 30;
    static constexpr long kOutputSeconds = 60;
    static constexpr unsigned long kMaxQueued = 16UL << 20;
    // The largest message read: -OAmbufsize or 64 MiB, whichever is greater.
    static unsigned long messageLimit();
    int processMessage();

    // The message handlers, by GIOP message type: 0 goes on, negative ends
    // the connection.
    int request(const IIOP::MessageHeader& header);
    int unexpectedMessage(const IIOP::MessageHeader& header);
    int cancelRequest(const IIOP::MessageHeader& header);
    int locateRequest(const IIOP::MessageHeader& header);
    int closeConnection(const IIOP::MessageHeader& header);
    int messageError(const IIOP::MessageHeader& header);
    int shmConnectRequest(const IIOP::MessageHeader& header);

    void bind(ZEBSkelInfo* skel);
    void unbind(ZEBSkelInfo* skel, unsigned char closing);
    // Forgets skel without telling anybody.
    void releaseImpl(const ZEBSkelInfo& skel);

    // sameFile: the stream was unlinked for a while and kept its descriptor.
    void LinkStream(bool sameFile = false);
    void UnlinkStream();

    // Writes the reply header of the request in data; CORBA_Object::
    // _prepare_reply forwards here.
    static void prepareReply(void* data);

    ZEBIIOPstream* stream() const { return _stream; }

    // ZEBDeferredReply::take: the request of the servant call running now,
    // taken off its connection; null outside a call or without
    // response_expected.
    static std::unique_ptr<ZEBDeferredReply> takeCurrent();
    // A deferred reply is answered or freed: the connection forgets it.
    void forgetDeferred(ZEBDeferredReply* reply);
    // Writes one whole message of GIOP type `type`, its body by `write`,
    // and sends or queues it. False if writing failed; the connection then
    // ends at its next read.
    bool sendLater(int type, const std::function<void(TBostream&)>& write);

private:
    typedef int (ZEBBOAClient::*Handler)(const IIOP::MessageHeader&);
    static const Handler _funcArray[8];

    // Sends an exception as the reply of data. 0 once sent, -1 on failure.
    int sendErrorReply(ZEBBOAClientData& data, const CORBA_SystemException& e);
    // The reply status already written by prepareReply becomes status,
    // and e follows.
    void replaceStatus(IIOP::ReplyStatusType status, const class CORBA_Exception& e);
    void clearRequestFields();
    // The skeleton of the key this connection used last, if key is that key
    // and the object is still active; with a reference. Null otherwise.
    ZEBSkelInfo* cachedSkeleton(const CORBA_OctetSequence& key);
    // Makes skel (null: nothing) the one that key leads to.
    void remember(const CORBA_OctetSequence& key, ZEBSkelInfo* skel);
    void writeMessageError();
    // A persistent key the adapter holds no active object for: the key
    // forwarder, if one is installed, may take the request (true).
    bool offerToForwarder(const CORBA_OctetSequence& key, int kind, CORBA::ULong request_id);
    // After reading or writing: closes (-1) on a bad header or too much
    // queued, keeps the write interest and the deadline up to date.
    int settle(ZEBIIOPstream::InputState input);
    // Links the descriptor for what it waits on now.
    void relink();
    // The earliest deadline now due or pending; 0 if none.
    long nextDeadline() const;
    void armTimer();

    ZEBIIOPstream* _stream = nullptr;  // owned
    ZEBBOA* _boa;
    ZEB_EXT::ConnectionInfo* _peer = nullptr;  // owned
    DSDictionary _bound;  // ZEBSkelInfo -> ZEBUniqueId: __bind calls per skeleton
    ZEBGlobalTable* _table;
    bool _exit_on_close = false;
    // A client sends one key again and again: the last one and the skeleton
    // it led to (counted; null: none) spare the decoding and the search by
    // name. A skeleton that leaves the adapter is forgotten in releaseImpl.
    CORBA_OctetSequence _lastKey;
    ZEBSkelInfo* _lastSkel = nullptr;
    bool _linked = false;
    bool _writeLinked = false;
    // Monotonic milliseconds: the last bytes in, the last move of the unfinished
    // message, the last move of queued output.
    long _lastInput;
    long _inputMoved;
    long _outputMoved;
    long _timerAt = 0;  // deadline the timer is armed for; 0 none
    int _active = 0;    // calls of this connection on the stack
    // Requests taken by servants and not answered yet; each is told when the
    // connection ends.
    std::vector<ZEBDeferredReply*> _deferred;
    // The request whose servant runs now (innermost, when calls nest).
    static ZEBBOAClientData* _serving;
};

#endif
