#ifndef VOINET_TESTS_LOOPBACK_H
#define VOINET_TESTS_LOOPBACK_H

#include "descriptor.h"

#include <cstdint>
#include <string>

namespace voinettest {

/// A TCP socket that is bound to a free port of the IPv4 loopback interface.
Descriptor boundSocket();

std::uint16_t portOf(const Descriptor& socket);

/// Sends everything. False when the peer has gone.
bool sendAll(const Descriptor& connection, const std::string& bytes);

}  // namespace voinettest

#endif
