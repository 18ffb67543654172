#ifndef VOINET_SERVER_REQUESTSTORE_H
#define VOINET_SERVER_REQUESTSTORE_H

#include "uniquefd.h"

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string>

namespace voinetserver {

/// The directory in which received requests are kept: 000001.bin, 000002.bin, ... in the order in
/// which they began to arrive. Threads may store at the same time; two servers may not share it.
class RequestStore {
  public:
    /// Makes the directory when it is missing, and goes on behind the highest number that is in it.
    /// An empty name keeps nothing. Throws StartError.
    explicit RequestStore(const std::string& directory);

  private:
    friend class ArrivingRequest;

    std::filesystem::path directory_;
    std::atomic<unsigned long> lastNumber_{0};
};

/// A request on its way into the store. Until it is complete its file is named `.part`; unless it
/// is kept, that file goes with this object. Used by one thread.
class ArrivingRequest {
  public:
    /// Throws std::system_error when the file cannot be made, as the others do when it cannot be
    /// written.
    explicit ArrivingRequest(RequestStore& store);
    ArrivingRequest(const ArrivingRequest&) = delete;
    ArrivingRequest& operator=(const ArrivingRequest&) = delete;
    ~ArrivingRequest();

    void append(const char* data, std::size_t size);

    /// The request is complete.
    void keep();

  private:
    std::filesystem::path kept_;
    std::filesystem::path arriving_;
    UniqueFd file_;
};

}  // namespace voinetserver

#endif
