// Whatever a server says, no input reaches another machine or another process: every name is the
// loopback interface's, and every connection goes to the scripted server's port.

#include "support/scriptedserver.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

extern "C" int connect(int descriptor, const sockaddr* address, socklen_t size) {
    using Function = int (*)(int, const sockaddr*, socklen_t);
    static const auto kReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "connect"));
    if (address->sa_family != AF_INET || size < sizeof(sockaddr_in)) {
        errno = ECONNREFUSED;
        return -1;
    }
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    own.sin_port = htons(voinet_fuzz::server().port());
    return kReal(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own);
}

extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints,
                           addrinfo** list) {
    using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto kReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
    addrinfo numeric = hints == nullptr ? addrinfo{} : *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    return kReal(host == nullptr ? nullptr : "127.0.0.1", service, &numeric, list);
}
