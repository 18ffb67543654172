#ifndef VOINET_SERVER_STARTERROR_H
#define VOINET_SERVER_STARTERROR_H

#include <stdexcept>

namespace voinetserver {

/// The server cannot start; the text is one sentence for the person who started it.
class StartError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace voinetserver

#endif
