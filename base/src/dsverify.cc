// The are-you-alive exchange, driven by the shared dispatcher.
#include "dsverify.h"

#include <netinet/in.h>

#include <cstdio>
#include <iostream>
#include <memory>

#include "dispatch.h"
#include "dsaddr.h"
#include "dsmsg.h"
#include "tbudpstr.h"

int DSVerifyHandler::inputReady(int fd) { return _owner->receiveMsg(fd); }

void DSVerifyHandler::timerExpired(long, long) { _owner->timeoutOccured(); }

DSVerify::DSVerify() : _handler(new DSVerifyHandler(this)), _stream(nullptr), _state(IDLE), _verbose(0) {}

DSVerify::~DSVerify() {
    dpDispatcher* d = dpDispatcher::instance();
    if (_state != IDLE && _stream) d->unlink(_stream->fd());
    if (_state == VERIFYING) d->stopTimer(_handler);
    delete _handler;
    delete _stream;
}

void DSVerify::isAlive() {}
void DSVerify::notResponding() {}
void DSVerify::isDown() {}

int DSVerify::port() const { return _stream ? _stream->port() : 0; }

DSAddr* DSVerify::addr() const { return _state == BOUND ? new DSAddr(port()) : nullptr; }

void DSVerify::dropStream() {
    if (_stream) dpDispatcher::instance()->unlink(_stream->fd());
    delete _stream;
    _stream = nullptr;
    _state = IDLE;
}

int DSVerify::bind(int port, const char* host) {
    if (_state != IDLE) return BUSY;
    std::unique_ptr<TBudpstream> s(new TBudpstream);
    if (s->bind(port, host) != TBudpstream::OK) {
        if (_verbose) {
            std::perror("bind:");
            std::cout << "DSVerify::bind: Unable to bind to port " << port << std::endl;
        }
        return BIND_FAILED;
    }
    _stream = s.release();
    dpDispatcher::instance()->link(_stream->fd(), dpDispatcher::ReadMask, _handler);
    _state = BOUND;
    return OK;
}

int DSVerify::sendProbe() {
    DSRequest probe(DSRequest::ARE_YOU_ALIVE, nullptr, nullptr);
    TBResource::ref(&probe);  // on the stack: nothing may free it
    return _stream->send(probe);
}

int DSVerify::verify(const DSAddr& peer) {
    if (_state != IDLE) return BUSY;
    std::unique_ptr<TBudpstream> s(new TBudpstream);
    if (s->bind(0, nullptr) != TBudpstream::OK) {
        if (_verbose) {
            std::perror("bind:");
            std::cout << "DSVerify::bind: Unable to bind to port 0" << std::endl;
        }
        return BIND_FAILED;
    }
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = peer.address();
    sin.sin_port = htons(static_cast<uint16_t>(peer.port()));
    if (s->connect(&sin) != TBudpstream::OK) {
        if (_verbose) {
            std::perror("connect:");
            std::cout << "DSVerify::verify: Unable to connect to " << "host (" << peer.ntoa()
                      << "), port (" << peer.port() << ")" << std::endl;
        }
        return CONNECT_FAILED;
    }
    _stream = s.release();
    if (sendProbe() != TBudpstream::OK) {
        if (_verbose)
            std::cout << "DSVerify::verify: Client at (" << peer.ntoa() << "), port ("
                      << peer.port() << ") is down" << std::endl;
        delete _stream;
        _stream = nullptr;
        isDown();
        return SEND_FAILED;
    }
    if (_verbose)
        std::cout << "DSVerify::verify: Sent a areYouAlive message to " << "client at ("
                  << peer.ntoa() << "), port (" << peer.port() << ")" << std::endl;
    dpDispatcher* d = dpDispatcher::instance();
    d->link(_stream->fd(), dpDispatcher::ReadMask, _handler);
    if (!_handler->rtt.valid) _handler->rtt.reset();
    _handler->rtt.nrexmt = 0;
    d->startTimer(_handler->rtt.start(), 0, _handler);
    _state = VERIFYING;
    return OK;
}

int DSVerify::receiveMsg(int) {
    sockaddr_in from{};
    int status = 0;
    // A fresh object from the stream: nobody else holds it.
    std::unique_ptr<TBTransObject> obj(_stream ? _stream->receive(status, &from) : nullptr);
    switch (_state) {
    case BOUND: {
        DSRequest* req = dynamic_cast<DSRequest*>(obj.get());
        if (req) {
            if (_verbose) std::cout << "DSVerify::receiveMsg: Received a " << "areYouAlive message " << std::endl;
            DSReply answer(DSReply::ALIVE, *req, 0, nullptr);
            TBResource::ref(&answer);
            _stream->send(&from, answer);
        } else if (_verbose) {
            std::cout << "DSVerify::receiveMsg: Error receiving " << "message. Return Code =" << status
                      << std::endl;
        }
        break;
    }
    case VERIFYING:
        dpDispatcher::instance()->stopTimer(_handler);
        dropStream();
        if (status != 0) {
            if (_verbose)
                std::cout << "DSVerify::receiveMsg: Peer is " << "down. Return Code (" << status << ")"
                          << std::endl;
            isDown();
        } else {
            isAlive();
        }
        break;
    default:
        std::cout << "DSVerify::receiveMsg:: Unexpected message\n";
        std::cout.flush();
        break;
    }
    return 0;
}

void DSVerify::timeoutOccured() {
    TBrtt& rtt = _handler->rtt;
    if (++rtt.nrexmt > TBrtt::MAXNREXMT) {
        rtt.valid = 0;
        if (_verbose) std::cout << "DSVerify::timeout: Peer is not responding " << std::endl;
        dropStream();
        isDown();
        return;
    }
    if (_verbose) std::cout << "DSVerify::timeout: Resending areYouAlive " << "message. " << std::endl;
    if (sendProbe() != TBudpstream::OK) {
        dropStream();
        isDown();
        return;
    }
    dpDispatcher::instance()->startTimer(rtt.start(), 0, _handler);
}
