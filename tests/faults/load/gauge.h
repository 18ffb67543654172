#ifndef VOINET_TESTS_FAULTS_LOAD_GAUGE_H
#define VOINET_TESTS_FAULTS_LOAD_GAUGE_H

#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::load {

/// What this process has taken of the machine.
struct Gauge {
    long descriptors = 0;
    /// Temporary files of the library in the system's directory, and whatever is in the directory
    /// of the local file.
    long files = 0;
    /// Pieces of memory that C++ and libcurl have taken and not given back: exact.
    long pieces = 0;
    /// Bytes that are in use of the C library's heap, whoever took them (the C library, the
    /// TLS library): a few more or less come from what the heap keeps at hand.
    long heapBytes = 0;
    /// What stays resident, the heap's gaps included.
    long residentBytes = 0;
};

/// Has memory counted; before the first use of libcurl.
void startGauging();

/// @param directory  where the local files are.
Gauge gauge(const std::string& directory);

/// One text for each thing of which there is more than there was, beyond what it may vary by.
std::vector<std::string> growth(const Gauge& before, const Gauge& after);

}  // namespace tessaro_com::pkm::voInet::load

#endif  // VOINET_TESTS_FAULTS_LOAD_GAUGE_H
