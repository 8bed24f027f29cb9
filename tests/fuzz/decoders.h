// The record decoders of the broker, run one after another over any input
// stream as a script asks. The CDR and buffer-stream targets share them.
#ifndef KELVANOR_FUZZ_DECODERS_H
#define KELVANOR_FUZZ_DECODERS_H

#include <cstdint>

class TBistream;

namespace kfuzz {

// Runs the decoder that op names (any value) once on strm. Whatever it
// builds is released before it returns. Short data throws as the stream
// does (CORBA_MARSHAL on CDR streams); the caller catches. A string is read
// into a target that already holds a shorter text only where the stream
// replaces a target too small (growsTargets): the others leave the room to
// their caller.
void decodeOne(TBistream& strm, uint8_t op, bool growsTargets = false);

}  // namespace kfuzz

#endif
