#ifndef VOINET_SERVER_REQUESTBODY_H
#define VOINET_SERVER_REQUESTBODY_H

#include <httplib.h>

#include <cstdint>
#include <optional>

namespace voinetserver {

/// The announced length of the body. None when there is no Content-Length, more than one, or one
/// that is no decimal number.
std::optional<std::uint64_t> announcedLength(const httplib::Request& request);

/// Reads the body and drops it: one that stayed unread would be taken for the next request of the
/// connection. False when nobody can tell where it ends, or when it could not be read; the
/// connection is of no use any more then.
bool drainBody(const httplib::Request& request, const httplib::ContentReader& reader);

}  // namespace voinetserver

#endif
