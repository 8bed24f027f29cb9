// A big-endian CDR writer framed as a GIOP Reply, and a stream pair.
#ifndef KELVANOR_TEST_TCPEER_H
#define KELVANOR_TEST_TCPEER_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <sys/socket.h>

#include "sockets.h"
#include "tbiostrm.h"
#include "zebstrm.h"

namespace ktest {

class BigEndianOut : public TBostream {
public:
    BigEndianOut() : _bytes("GIOP\1\0\0\1\0\0\0\0", 12) {}
    std::string message() const {
        std::string m = _bytes;
        const uint32_t n = static_cast<uint32_t>(m.size() - 12);
        for (int i = 0; i < 4; ++i) m[8 + i] = static_cast<char>(n >> (24 - 8 * i));
        return m;
    }

    TBostream& operator<<(const char* s) override { return putCString(s); }
    TBostream& operator<<(char c) override { return raw(&c, 1); }
    TBostream& operator<<(unsigned char c) override { return raw(reinterpret_cast<char*>(&c), 1); }
    TBostream& operator<<(short v) override { return num(uint16_t(v), 2); }
    TBostream& operator<<(unsigned short v) override { return num(v, 2); }
    TBostream& operator<<(int v) override { return num(uint32_t(v), 4); }
    TBostream& operator<<(unsigned int v) override { return num(v, 4); }
    TBostream& operator<<(long v) override { return num(uint32_t(v), 4); }
    TBostream& operator<<(unsigned long v) override { return num(uint32_t(v), 4); }
    TBostream& operator<<(float v) override { return num(bits<uint32_t>(v), 4); }
    TBostream& operator<<(double v) override { return num(bits<uint64_t>(v), 8); }
    TBostream& put(char c) override { return raw(&c, 1); }
    TBostream& put(const char* p, unsigned n) override { return raw(p, n); }
    TBostream& put(const unsigned char* p, unsigned n) override {
        return raw(reinterpret_cast<const char*>(p), n);
    }
    TBostream& put(const short* p, unsigned n) override { return each(p, n); }
    TBostream& put(const unsigned short* p, unsigned n) override { return each(p, n); }
    TBostream& put(const int* p, unsigned n) override { return each(p, n); }
    TBostream& put(const unsigned int* p, unsigned n) override { return each(p, n); }
    TBostream& put(const long* p, unsigned n) override { return each(p, n); }
    TBostream& put(const unsigned long* p, unsigned n) override { return each(p, n); }
    TBostream& put(const float* p, unsigned n) override { return each(p, n); }
    TBostream& put(const double* p, unsigned n) override { return each(p, n); }
    TBostream& putCString(const char* s) override {
        if (!s) return num(0, 4);
        const uint32_t n = uint32_t(std::strlen(s) + 1);
        num(n, 4);
        return raw(s, n);
    }

private:
    template <class U, class F>
    static U bits(F v) {
        U b;
        std::memcpy(&b, &v, sizeof b);
        return b;
    }
    TBostream& raw(const char* p, size_t n) {
        _bytes.append(p, n);
        return *this;
    }
    TBostream& num(uint64_t v, unsigned n) {
        while (_bytes.size() % n) _bytes.push_back(' ');
        for (unsigned i = 0; i < n; ++i) _bytes.push_back(char(v >> (8 * (n - 1 - i))));
        return *this;
    }
    template <class T>
    TBostream& each(const T* p, unsigned n) {
        for (unsigned i = 0; i < n; ++i) *this << p[i];
        return *this;
    }
    std::string _bytes;
};

// Two connection streams joined by a socket pair: `out` writes messages,
// `in` reads them; raw() lets a test send bytes of its own to `in`.
struct StreamPair {
    StreamPair() {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) return;
        out.reset(new ZEBIIOPstream);
        in.reset(new ZEBIIOPstream);
        out->attach(fds[0]);
        in->attach(fds[1]);
    }
    TBostream& begin() {
        out->rewindOutBuffer();
        out->writeMessageHeader(IIOP::Reply);
        return *out;
    }
    void pass() {
        out->sendMessage(5);
        in->receiveMessage(5);
    }
    void raw(const std::string& message) {
        ASSERT_TRUE(sendAll(out->fd(), message));
        in->receiveMessage(5);
    }
    std::unique_ptr<ZEBIIOPstream> out;
    std::unique_ptr<ZEBIIOPstream> in;
};

}  // namespace ktest

#endif
