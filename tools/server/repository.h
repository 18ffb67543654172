#ifndef VOINET_SERVER_REPOSITORY_H
#define VOINET_SERVER_REPOSITORY_H

#include "content.h"

#include <filesystem>
#include <memory>
#include <string>
#include <variant>

namespace voinetserver {

/// A file of the repository, ready to be sent.
struct Found {
    std::shared_ptr<const Content> content;
    std::string type;
};

/// Why a path is not served: an HTTP status and one sentence.
struct Refusal {
    int status;
    std::string reason;
};

using Lookup = std::variant<Found, Refusal>;

/// The directory that is served. Threads may look files up at the same time.
///
/// Nothing outside the directory is ever served: a path with a `..` segment is refused wherever it
/// would lead, and a symbolic link is followed only when what it leads to lies in the directory.
/// Only regular files are served; directories are not listed.
class Repository {
  public:
    /// Throws StartError when `directory` is no directory.
    explicit Repository(const std::string& directory);

    /// Looks up the path of a request, percent-decoded, without a query. A directory that exists
    /// but has no SiteStat.xml is given a made-up one, so that clients find the site alive.
    Lookup find(const std::string& path) const;

  private:
    Lookup findMissing(const std::string& path) const;
    bool contains(const std::filesystem::path& canonicalPath) const;

    std::filesystem::path root_;
};

}  // namespace voinetserver

#endif
