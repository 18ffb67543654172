#ifndef VOINET_SRC_STREAM_H
#define VOINET_SRC_STREAM_H

#include <cerrno>
#include <cstdio>
#include <memory>

namespace tessaro_com::pkm::voInet {

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};

/// Owns a stream of the C library.
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// Closes a stream that was written to and has no bytes in a buffer any more; it may be null. False
/// when the system reports only now that data got lost; an interrupted close loses none.
inline bool closeWritten(Stream stream) noexcept {
    return stream == nullptr || std::fclose(stream.release()) == 0 || errno == EINTR;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_STREAM_H
