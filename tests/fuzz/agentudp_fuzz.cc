// The agent's datagrams: the input goes as one datagram to a bound
// TBudpstream, which checks the length word and decodes the message. No
// input may crash it, make it read beyond the datagram or leak the object.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>

#include "common.h"
#include "tbtinfo.h"
#include "tbudpstr.h"

namespace {

TBudpstream* stream;
int sender = -1;
sockaddr_in to;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kfuzz::quiet();
    DSinit();
    stream = new TBudpstream;
    stream->blocking(1);
    if (stream->bind(0, "127.0.0.1") != 0) return 1;
    sender = socket(AF_INET, SOCK_DGRAM, 0);
    to = sockaddr_in{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(stream->port()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 9000) return 0;
    if (sendto(sender, data, size, 0, reinterpret_cast<sockaddr*>(&to), sizeof to) < 0) return 0;
    int status = 0;
    std::unique_ptr<TBTransObject> obj(stream->receive(status, nullptr));
    return 0;
}
