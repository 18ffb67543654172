#ifndef VOINET_SERVER_EXCHANGERULES_H
#define VOINET_SERVER_EXCHANGERULES_H

#include <httplib.h>

#include <optional>
#include <string>

namespace voinetserver {

/// What is wrong with the headers of a request to the management server, in one sentence for the
/// person whose client sent it; none when they are as an agent sends them.
///
/// The headers are judged as httplib hands them over: it has dropped those without a value and
/// decoded percent-encoded characters.
std::optional<std::string> headerFault(const httplib::Request& request);

}  // namespace voinetserver

#endif
