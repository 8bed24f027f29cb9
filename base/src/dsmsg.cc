// The agent's messages and their stream forms.
#include "dsmsg.h"

#include <cstdint>
#include <cstring>

#include "tbiostrm.h"
#include "tbiotbl.h"
#include "tbipcstr.h"

const char DSMessageVersion[] = "Kelvanor 2.0";

unsigned DSMessage::_seq_num = 0;
unsigned DSAMessage::_seq_num = 0;

namespace {

// A stream without a memory buffer (the text form) has no count of what is
// left; a block claiming more than this there is refused.
constexpr int kUnbufferedLimit = 1 << 16;

// A message the reader refused is handed to the tables, which free it once
// nothing of its top-level object can name it any more, and the reader gets
// no object.
template <class M>
TBTransObject* checked(M* m, TBistream& strm) {
    if (!m->refused()) return m;
    strm.inTable().orphan(m);
    return nullptr;
}

int compareNumbers(unsigned a, unsigned b) { return a == b ? 0 : (a < b ? -1 : 1); }

}  // namespace

#define DS_DEFINE_MESSAGE(Class, Name, Base)                                                    \
    TBTransObject* Class::readFrom(TBistream& strm) { return checked(new Class(strm), strm); } \
    TBTypeInfo Class::_typeInfo(Name, &Class::readFrom, Base::desc(), nullptr)

DS_DEFINE_MESSAGE(DSMessage, "DSMessage", DSResource);
DS_DEFINE_MESSAGE(DSRequest, "DSRequest", DSMessage);
DS_DEFINE_MESSAGE(DSReply, "DSReply", DSMessage);
DS_DEFINE_MESSAGE(DSAMessage, "DSAMessage", DSResource);
DS_DEFINE_MESSAGE(DSAReply, "DSAReply", DSAMessage);

#undef DS_DEFINE_MESSAGE

// ---- The data block.

DSMessageData::DSMessageData(const void* token, int length)
    : _data(new char[length == 0 ? 4 : (length < 4 ? 4 : length)]()),
      _length(length == 0 ? 4 : length) {
    // Only the pointer's low 32 bits, in host order: a token the peer
    // hands back, never memory it could follow.
    uint32_t low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(token));
    if (token) std::memcpy(_data, &low, 4);
}

DSMessageData::DSMessageData(const DSMessageData& other)
    : _data(other._length > 0 ? new char[other._length] : nullptr), _length(other._length) {
    if (_length > 0) std::memcpy(_data, other._data, _length);
}

DSMessageData::~DSMessageData() { delete[] _data; }

void DSMessageData::clear() {
    delete[] _data;
    _data = nullptr;
    _length = 0;
}

void DSMessageData::takeOver(const DSMessageData& other) {
    clear();
    _length = other._length;
    if (_length <= 0) return;
    _data = new char[_length]();
    std::memcpy(_data, other._data, _length < 4 ? _length : 4);
}

bool DSMessageData::read(TBistream& strm) {
    clear();
    int n = -1;
    strm >> n;
    const TBipcbuf* buf = strm.inBuffer();
    const int left = buf ? buf->readAvail() : kUnbufferedLimit;
    if (n < 0 || n > left) return false;
    _length = n;
    if (n > 0) {
        _data = new char[n]();
        strm.get(_data, static_cast<unsigned>(n));
    }
    return true;
}

void DSMessageData::write(TBostream& strm) const {
    strm << _length;
    if (_length > 0) strm.put(_data, static_cast<unsigned>(_length));
}

// ---- DSMessage.

DSMessage::DSMessage(MsgType type, void* data, int length)
    : _data(data, length), _version(DSMessageVersion), _msgType(type), _msgNum(++_seq_num) {}

DSMessage::DSMessage(const DSMessage& other)
    : DSResource(other), _data(other._data), _refused(other._refused), _current(other._current),
      _version(other._version), _msgType(other._msgType), _msgNum(other._msgNum) {}

DSMessage::DSMessage(TBistream& strm)
    : DSResource(strm), _version(strm), _msgType(0), _msgNum(0) {
    if (std::strcmp(_version.string(), DSMessageVersion) != 0) {
        _current = false;
        return;
    }
    strm >> _msgType >> _msgNum;
    if (!_data.read(strm)) _refused = true;
}

int DSMessage::compare(const TBObject& other) const {
    const DSMessage* o = dynamic_cast<const DSMessage*>(&other);
    return o ? compareNumbers(_msgNum, o->_msgNum) : -1;
}

void DSMessage::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_version) << _msgType << _msgNum;
    _data.write(strm);
}

void DSMessage::prettyPrint(TBostream& strm) const {
    strm << "\nVersion:" << version() << "\nMsg Type:" << _msgType << "\nMsg Num:" << _msgNum;
    endl(strm);
}

// ---- DSRequest.

DSRequest::DSRequest(int type, DSResource* argument, void* data)
    : DSMessage(REQUEST, data, 0), _requestType(type), _argument(argument) {
    ref(_argument);
}

DSRequest::DSRequest(TBistream& strm) : DSMessage(strm), _requestType(-1), _argument(nullptr) {
    if (_refused) return;
    strm >> _requestType;
    _argument = DSreadResource(strm);
    ref(_argument);
}

DSRequest::~DSRequest() { unref(_argument); }

void DSRequest::write(TBostream& strm) const {
    DSMessage::write(strm);
    strm << _requestType << static_cast<const TBTransObject*>(_argument);
}

void DSRequest::prettyPrint(TBostream& strm) const {
    DSMessage::prettyPrint(strm);
    strm << "Request Type:" << _requestType << "\nRequest:";
    if (_argument) _argument->prettyPrint(strm);
    else strm << "(nil)";
    endl(strm);
}

// ---- DSReply.

DSReply::DSReply(int type, const DSMessage& request, int status, DSResource* result)
    : DSMessage(REPLY, nullptr, 0), _replyType(type), _requestNum(request.msgNum()),
      _status(status), _result(result) {
    _data.takeOver(request.data());
    ref(_result);
}

DSReply::DSReply(TBistream& strm)
    : DSMessage(strm), _replyType(-1), _requestNum(0), _status(0), _result(nullptr) {
    if (_refused) return;
    strm >> _replyType >> _requestNum >> _status;
    _result = DSreadResource(strm);
    ref(_result);
}

DSReply::~DSReply() { unref(_result); }

void DSReply::write(TBostream& strm) const {
    DSMessage::write(strm);
    strm << _replyType << _requestNum << _status << static_cast<const TBTransObject*>(_result);
}

void DSReply::prettyPrint(TBostream& strm) const {
    DSMessage::prettyPrint(strm);
    strm << "Reply Type:" << _replyType << "\nRequest Num:" << _requestNum << "\nStatus:" << _status
         << "\nReply:";
    if (_result) _result->prettyPrint(strm);
    else strm << "(nil)";
    endl(strm);
}

// ---- DSAMessage.

DSAMessage::DSAMessage(int type, DSResource* body, void* data, int length)
    : _data(data, length), _version(DSMessageVersion), _msgType(type), _msgNum(++_seq_num),
      _body(body) {
    ref(_body);
}

DSAMessage::DSAMessage(TBistream& strm)
    : DSResource(strm), _version(strm), _msgType(0), _msgNum(0), _body(nullptr) {
    if (std::strcmp(_version.string(), DSMessageVersion) != 0) {
        _current = false;
        return;
    }
    strm >> _msgType >> _msgNum;
    _body = DSreadResource(strm);
    ref(_body);
    if (!_data.read(strm)) _refused = true;
}

DSAMessage::~DSAMessage() { unref(_body); }

int DSAMessage::compare(const TBObject& other) const {
    const DSAMessage* o = dynamic_cast<const DSAMessage*>(&other);
    return o ? compareNumbers(_msgNum, o->_msgNum) : -1;
}

void DSAMessage::write(TBostream& strm) const {
    strm << static_cast<const TBTransObject&>(_version) << _msgType << _msgNum
         << static_cast<const TBTransObject*>(_body);
    _data.write(strm);
}

void DSAMessage::prettyPrint(TBostream& strm) const {
    strm << "\nVersion:" << version() << "\nMsg Type:" << _msgType << "\nMsg Num:" << _msgNum
         << "\nMsg Object\n";
    if (_body) _body->prettyPrint(strm);
    endl(strm);
}

// ---- DSAReply.

DSAReply::DSAReply(int type, const DSAMessage& request, int status, DSResource* body)
    : DSAMessage(AREPLY, body, nullptr, 0), _replyType(type), _requestNum(request.msgNum()),
      _status(status) {
    _data.takeOver(request.data());
}

DSAReply::DSAReply(TBistream& strm)
    : DSAMessage(strm), _replyType(-1), _requestNum(0), _status(0) {
    if (_refused) return;
    strm >> _replyType >> _requestNum >> _status;
}

void DSAReply::write(TBostream& strm) const {
    DSAMessage::write(strm);
    strm << _replyType << _requestNum << _status;
}

void DSAReply::prettyPrint(TBostream& strm) const {
    DSAMessage::prettyPrint(strm);
    strm << "Reply Type:" << _replyType << "\nRequest Num:" << _requestNum << "\nStatus:" << _status;
    endl(strm);
}
