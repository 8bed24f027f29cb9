// The directory agent's messages: DSMessage and its DSRequest and DSReply
// within a session, DSAMessage and DSAReply to the agent itself. One object
// goes to a datagram, or to a framed TCP message for bulk answers.
//
// Each message carries a version text, a type, a number from a process-wide
// counter (one for DSMessage, one for DSAMessage), and an opaque data block:
// a token of 4 bytes holding the low 32 bits of the pointer it was made
// from, in host order. A reply takes its request's token over and names the
// request by number. A message of another version reads with empty data and
// the rest of its base part unread; one whose data length exceeds the bytes
// left is refused whole (the reader gives null).
#ifndef KELVANOR_DSMSG_H
#define KELVANOR_DSMSG_H

#include <kelvanor/tbresrc.h>
#include <kelvanor/tbstring.h>

// The version every message carries.
extern const char DSMessageVersion[];  // "Kelvanor 2.0"

// The data block and its reading, shared by both families.
class DSMessageData {
public:
    DSMessageData(const void* token, int length);
    DSMessageData(const DSMessageData& other);
    DSMessageData& operator=(const DSMessageData&) = delete;
    ~DSMessageData();
    DSMessageData() = default;

    // The length and the bytes; false (and nothing kept) for a negative
    // length or one beyond what the stream holds.
    bool read(TBistream& strm);
    void write(TBostream& strm) const;
    void clear();
    // Keeps the length and the first 4 bytes of other.
    void takeOver(const DSMessageData& other);

    const char* data() const { return _data; }
    int length() const { return _length; }

private:
    char* _data = nullptr;  // _length bytes, owned
    int _length = 0;
};

class DSMessage : public DSResource {
    TB_DECLARE_CLASS(DSMessage);

public:
    enum MsgType { REQUEST = 1, REPLY = 2 };

    // length 0 means 4. The number comes from _seq_num.
    DSMessage(MsgType type, void* data, int length);
    explicit DSMessage(TBistream& strm);
    DSMessage(const DSMessage& other);

    const char* version() const { return _version.string(); }
    int msgType() const { return _msgType; }
    unsigned msgNum() const { return _msgNum; }
    const DSMessageData& data() const { return _data; }
    // The stream held something that cannot be a message.
    bool refused() const { return _refused; }

    unsigned hash() const override { return _msgNum; }
    int compare(const TBObject& other) const override;  // by number
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

    static unsigned _seq_num;  // number of the last message built

protected:
    DSMessageData _data;
    bool _refused = false;
    bool _current = true;  // the version matched: the rest was read

private:
    TBString _version;
    int _msgType;
    unsigned _msgNum;
};

class DSRequest : public DSMessage {
    TB_DECLARE_CLASS(DSRequest);

public:
    enum RequestType {
        LOGIN = 0, ARE_YOU_ALIVE = 2, GET_PROVIDER = 3, TRIGGER = 4, REGISTER = 5,
        REMOVE_PROVIDER = 6, REMOVE_TRIGGER = 7, ALL_AGENTS = 8, ALL_PROVIDERS = 9,
        CLOSE = 10, ALL_NAMES = 11
    };
    // argument: may be null; the request holds a reference.
    DSRequest(int type, DSResource* argument, void* data);
    explicit DSRequest(TBistream& strm);
    ~DSRequest() override;
    DSRequest(const DSRequest&) = delete;
    DSRequest& operator=(const DSRequest&) = delete;

    int requestType() const { return _requestType; }
    DSResource* argument() const { return _argument; }  // not counted for the caller

    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    int _requestType;
    DSResource* _argument;  // referenced, or null
};

class DSReply : public DSMessage {
    TB_DECLARE_CLASS(DSReply);

public:
    enum ReplyType { TRIGGER_ACK = 1, LOGGED_IN = 2, ALIVE = 4, PROVIDER = 6, CLOSED = 12 };
    enum StatusCode {
        OK = 0, LOGIN_ACCEPTED = -98, UNKNOWN_CLIENT = -97, LOGIN_REFUSED = -96,
        LOGIN_REFUSED_2 = -95, VERSION_MISMATCH = -100
    };
    // Answers request: its token and data length, and its number.
    DSReply(int type, const DSMessage& request, int status, DSResource* result);
    explicit DSReply(TBistream& strm);
    ~DSReply() override;
    DSReply(const DSReply&) = delete;
    DSReply& operator=(const DSReply&) = delete;

    int replyType() const { return _replyType; }
    unsigned requestNum() const { return _requestNum; }
    int status() const { return _status; }
    DSResource* result() const { return _result; }  // not counted for the caller

    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    int _replyType;
    unsigned _requestNum;
    int _status;
    DSResource* _result;  // referenced, or null
};

class DSAMessage : public DSResource {
    TB_DECLARE_CLASS(DSAMessage);

public:
    enum AgentMsgType { AREPLY = 5, LOCATE = 6, SUSPECT = 7, HANDLER_ADDR = 9 };
    // body: may be null; referenced. length 0 means 4.
    DSAMessage(int type, DSResource* body, void* data, int length);
    explicit DSAMessage(TBistream& strm);
    ~DSAMessage() override;
    DSAMessage(const DSAMessage&) = delete;
    DSAMessage& operator=(const DSAMessage&) = delete;

    const char* version() const { return _version.string(); }
    int msgType() const { return _msgType; }
    unsigned msgNum() const { return _msgNum; }
    DSResource* body() const { return _body; }
    const DSMessageData& data() const { return _data; }
    bool refused() const { return _refused; }

    unsigned hash() const override { return _msgNum; }
    int compare(const TBObject& other) const override;
    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

    static unsigned _seq_num;

protected:
    DSMessageData _data;
    bool _refused = false;
    bool _current = true;

private:
    TBString _version;
    int _msgType;
    unsigned _msgNum;
    DSResource* _body;  // referenced, or null
};

class DSAReply : public DSAMessage {
    TB_DECLARE_CLASS(DSAReply);

public:
    enum AgentReplyType { LOCATED = 5 };
    enum AgentStatusCode { OK = 0 };
    DSAReply(int type, const DSAMessage& request, int status, DSResource* body);
    explicit DSAReply(TBistream& strm);

    int replyType() const { return _replyType; }
    unsigned requestNum() const { return _requestNum; }
    int status() const { return _status; }

    void write(TBostream& strm) const override;
    void prettyPrint(TBostream& strm) const override;

private:
    int _replyType;
    unsigned _requestNum;
    int _status;
};

#endif
