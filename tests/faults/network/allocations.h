#ifndef VOINET_TESTS_FAULTS_NETWORK_ALLOCATIONS_H
#define VOINET_TESTS_FAULTS_NETWORK_ALLOCATIONS_H

namespace tessaro_com::pkm::voInet::faults {

/// Has libcurl's memory counted as well; before its first use.
void countAllocationsOfCurl();

/// Pieces of memory of the process that C++ and libcurl have taken and not given back.
long liveAllocations();

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_ALLOCATIONS_H
