#include "support/restrictions.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::uint32_t kFileOverrides = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

/// The first 32 capabilities stand in the first of two records.
using Capabilities = std::array<__user_cap_data_struct, 2>;

void check(long result, const char* what) {
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

Capabilities capabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    Capabilities now{};
    check(::syscall(SYS_capget, &header, now.data()), "capget");
    return now;
}

void setEffectiveCapabilities(std::uint32_t effective) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    Capabilities now = capabilities();
    now[0].effective = effective;
    check(::syscall(SYS_capset, &header, now.data()), "capset");
}

}  // namespace

FileSizeLimit::FileSizeLimit(std::uint64_t bytes)
    // Without this the process is ended by the signal instead of getting an error.
    : m_handlerBefore(std::signal(SIGXFSZ, SIG_IGN)) {
    check(::getrlimit(RLIMIT_FSIZE, &m_before), "getrlimit");
    rlimit limit = m_before;
    limit.rlim_cur = static_cast<rlim_t>(bytes);
    check(::setrlimit(RLIMIT_FSIZE, &limit), "setrlimit");
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_handlerBefore);
}

PermissionsCount::PermissionsCount() : m_dropped(capabilities()[0].effective & kFileOverrides) {
    setEffectiveCapabilities(capabilities()[0].effective & ~kFileOverrides);
}

PermissionsCount::~PermissionsCount() {
    setEffectiveCapabilities(capabilities()[0].effective | m_dropped);
}

EnvironmentVariable::EnvironmentVariable(const char* name, const std::string& value)
    : m_name(name), m_wasSet(std::getenv(name) != nullptr) {
    if (m_wasSet) {
        m_before = std::getenv(name);
    }
    ::setenv(name, value.c_str(), 1);
}

EnvironmentVariable::~EnvironmentVariable() {
    if (m_wasSet) {
        ::setenv(m_name, m_before.c_str(), 1);
    } else {
        ::unsetenv(m_name);
    }
}

}  // namespace tessaro_com::pkm::voInet::wire
