#ifndef VOINET_TESTS_WIRE_SUPPORT_RESTRICTIONS_H
#define VOINET_TESTS_WIRE_SUPPORT_RESTRICTIONS_H

#include <sys/resource.h>

#include <cstdint>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

/// While it lives, no file of this process grows beyond a size: a full disk for tests.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(std::uint64_t bytes);
    ~FileSizeLimit();

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_before{};
    void (*m_handlerBefore)(int);
};

/// While it lives, file permissions count for the calling thread, also when it runs as root.
class PermissionsCount {
  public:
    PermissionsCount();
    ~PermissionsCount();

    PermissionsCount(const PermissionsCount&) = delete;
    PermissionsCount& operator=(const PermissionsCount&) = delete;

  private:
    std::uint32_t m_dropped = 0;
};

/// Sets an environment variable and restores it at the end.
class EnvironmentVariable {
  public:
    EnvironmentVariable(const char* name, const std::string& value);
    ~EnvironmentVariable();

    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

  private:
    const char* m_name;
    std::string m_before;
    bool m_wasSet;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_RESTRICTIONS_H
