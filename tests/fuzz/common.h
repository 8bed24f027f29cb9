// What the fuzz targets share: a reader of the script part of an input,
// a broker on loopback, quiet standard streams and a connected socket pair
// whose far end has sent the input and closed.
#ifndef KELVANOR_FUZZ_COMMON_H
#define KELVANOR_FUZZ_COMMON_H

#include <cstddef>
#include <cstdint>

class CORBA_ORB;

namespace kfuzz {

// An input split in two: a few leading bytes steer the target (which
// decoders to run, in which order, with which limits), the rest is the data
// that the decoders see. The first byte gives the length of the script.
class Input {
public:
    Input(const uint8_t* data, size_t size, size_t maxScript = 15);
    // The next script byte, 0 once the script is used up.
    uint8_t op();
    bool moreOps() const { return _op < _scriptEnd; }
    const uint8_t* data() const { return _data + _scriptEnd; }
    size_t size() const { return _size - _scriptEnd; }

private:
    const uint8_t* _data;
    size_t _size;
    size_t _op;
    size_t _scriptEnd;
};

// The process's broker with its adapter on 127.0.0.1, made on the first call.
CORBA_ORB* orb();

// What most targets do first: quiet() and orb(); gives 0 for the fuzzer.
int init();

// Sends the object-stream complaints, the broker's messages and everything
// else written to cout, cerr and clog nowhere, for speed and quiet.
void quiet();

// A connected AF_UNIX stream pair: data is written into peer, whose writing
// side is then shut, so that a reader of *mine sees the data and then end of
// file. The input must fit the socket buffers (the targets' -max_len keeps
// it small). Both descriptors belong to the caller; false if that fails.
bool socketPairWith(const uint8_t* data, size_t size, int* mine, int* peer);

}  // namespace kfuzz

#endif
