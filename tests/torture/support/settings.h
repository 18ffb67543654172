#ifndef VOINET_TESTS_TORTURE_SUPPORT_SETTINGS_H
#define VOINET_TESTS_TORTURE_SUPPORT_SETTINGS_H

#include "voinet/transferitf.h"

#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::torture {

/// The value of every settings member, to be compared.
struct Settings {
    std::vector<int> numbers;
    std::vector<std::wstring> wide;
    std::vector<std::string> utf8;

    bool operator==(const Settings& other) const {
        return numbers == other.numbers && wide == other.wide && utf8 == other.utf8;
    }
};

Settings settingsOf(const TransferItf& transfer);

/// A proxy record that fills in everything, for HTTP and FTP.
CProxyParams fullProxyRecord();

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_SETTINGS_H
