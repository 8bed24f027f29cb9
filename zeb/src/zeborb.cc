// The ORB object of a process.
#include "zeborb.h"

ZEBORB::ZEBORB() : _clients(16) {}

ZEBORB::~ZEBORB() {}
