// CDR speed of the IIOP stream: encoding and decoding of longs, doubles,
// strings and 64 KiB octet sequences on a scratch stream, and one small
// request/reply exchange over a loopback connection between two streams.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "sequence.h"
#include "zebstrm.h"

namespace {

// Encodes `count` values with one operator call each.
template <class T>
std::string encode(T value, int count) {
    ZEBIIOPstream s;
    for (int i = 0; i < count; ++i) s << value;
    return std::string(s.outData(), s.outLength());
}

template <class T>
void BM_Encode(benchmark::State& state, T value) {
    ZEBIIOPstream s;
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        s.rewindOutBuffer();
        for (int i = 0; i < count; ++i) s << value;
        benchmark::DoNotOptimize(s.outData());
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(s.outLength()));
}

template <class T>
void BM_Decode(benchmark::State& state, T value) {
    const int count = static_cast<int>(state.range(0));
    std::string data = encode(value, count);
    ZEBIIOPstream s;
    T v{};
    for (auto _ : state) {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        for (int i = 0; i < count; ++i) s >> v;
        benchmark::DoNotOptimize(v);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}

void BM_EncodeLongs(benchmark::State& state) { BM_Encode(state, CORBA::Long(0x12345678)); }
void BM_DecodeLongs(benchmark::State& state) { BM_Decode(state, CORBA::Long(0x12345678)); }
void BM_EncodeDoubles(benchmark::State& state) { BM_Encode(state, 3.25); }
void BM_DecodeDoubles(benchmark::State& state) { BM_Decode(state, 3.25); }

void BM_EncodeStrings(benchmark::State& state) {
    BM_Encode(state, static_cast<const char*>("IDL:Kelvanor/Bench:1.0"));
}

void BM_DecodeStrings(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    std::string data = encode(static_cast<const char*>("IDL:Kelvanor/Bench:1.0"), count);
    ZEBIIOPstream s;
    for (auto _ : state) {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        for (int i = 0; i < count; ++i) {
            char* v = nullptr;
            s >> v;
            benchmark::DoNotOptimize(v);
            CORBA::string_free(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}

constexpr CORBA::ULong kOctets = 64 * 1024;

void BM_EncodeOctetSequence(benchmark::State& state) {
    CORBA_OctetSequence seq(kOctets);
    seq.length(kOctets);
    std::memset(seq.get_buffer(), 0x5a, kOctets);
    ZEBIIOPstream s;
    for (auto _ : state) {
        s.rewindOutBuffer();
        s << seq;
        benchmark::DoNotOptimize(s.outData());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOctets));
}

void BM_DecodeOctetSequence(benchmark::State& state) {
    CORBA_OctetSequence seq(kOctets);
    seq.length(kOctets);
    std::memset(seq.get_buffer(), 0x5a, kOctets);
    ZEBIIOPstream w;
    w << seq;
    std::string data(w.outData(), w.outLength());
    ZEBIIOPstream s;
    CORBA_OctetSequence out;
    for (auto _ : state) {
        s.set_read_buffer(&data[0], data.size(), 0);
        s.newInEncapsulation();
        s >> out;
        benchmark::DoNotOptimize(out.get_buffer());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOctets));
}

// One 64-byte request and one 64-byte reply between a client stream and the
// server stream that accepted it, both in this thread: each side's message
// is in the socket before the other side reads it.
void BM_LoopbackRequestReply(benchmark::State& state) {
    ZEBIIOPstream listener;
    listener.listen(0, "127.0.0.1");
    ZEBIIOPstream client;
    client.connect("127.0.0.1", listener.port(), 0);
    std::unique_ptr<ZEBIIOPstream> server(listener.accept());
    int on = 1;
    setsockopt(client.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(server->fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const char payload[52] = "sixty-four bytes with the header, fifty-two of body";
    char body[52];
    for (auto _ : state) {
        client.beginWrite(0);
        client.writeMessageHeader(IIOP::Request);
        client.put(payload, sizeof payload);
        client.sendMessage(0);
        server->receiveMessage(0);
        server->get(body, sizeof body);
        server->beginWrite(0);
        server->writeMessageHeader(IIOP::Reply);
        server->put(body, sizeof body);
        server->sendMessage(0);
        client.receiveMessage(0);
        client.get(body, sizeof body);
        benchmark::DoNotOptimize(body);
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_EncodeLongs)->Arg(16)->Arg(1024);
BENCHMARK(BM_DecodeLongs)->Arg(16)->Arg(1024);
BENCHMARK(BM_EncodeDoubles)->Arg(16)->Arg(1024);
BENCHMARK(BM_DecodeDoubles)->Arg(16)->Arg(1024);
BENCHMARK(BM_EncodeStrings)->Arg(16)->Arg(1024);
BENCHMARK(BM_DecodeStrings)->Arg(16)->Arg(1024);
BENCHMARK(BM_EncodeOctetSequence);
BENCHMARK(BM_DecodeOctetSequence);
BENCHMARK(BM_LoopbackRequestReply);

BENCHMARK_MAIN();
