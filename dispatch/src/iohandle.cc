// Default reactions of an event receiver.
#include "iohandle.h"

dpIOHandler::~dpIOHandler() = default;

int dpIOHandler::inputReady(int) {
    return -1;
}

int dpIOHandler::outputReady(int) {
    return -1;
}

int dpIOHandler::exceptionRaised(int) {
    return -1;
}

void dpIOHandler::timerExpired(long, long) {}
