// The framed TCP messages of the agent's listings: the input arrives on a
// stream socket whose far end then closes, and a TBtcpstream decodes
// message after message until it fails. No length word may make it
// allocate without bound, and nothing may crash or leak.
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "common.h"
#include "tbtcpstr.h"
#include "tbtinfo.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kfuzz::quiet();
    DSinit();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int mine = -1, peer = -1;
    if (!kfuzz::socketPairWith(data, size, &mine, &peer)) return 0;
    {
        TBtcpstream s(1024, 50);
        s.attach(mine);  // the stream closes it
        int status = 0;
        for (int i = 0; i < 64 && status == 0; ++i) {
            std::unique_ptr<TBTransObject> obj(s.receive(status));
        }
    }
    close(peer);
    return 0;
}
