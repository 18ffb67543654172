#include "events.h"

#include <cstdio>
#include <string>

namespace voinet_command {

void EventStream::Write(const char* name, const Object& fields) const {
    if (!m_enabled) {
        return;
    }
    Object object;
    object["event"] = name;
    object.update(fields);
    // Names of files may hold any bytes.
    const std::string line = object.dump(-1, ' ', false, Object::error_handler_t::replace) + "\n";
    // One call, under the stream's own lock.
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace voinet_command
