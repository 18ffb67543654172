#ifndef VOINET_SERVER_CONTENT_H
#define VOINET_SERVER_CONTENT_H

#include "uniquefd.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace voinetserver {

/// What the body of a reply is read from. Never changes; several threads may read at once.
class Content {
  public:
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    virtual ~Content() = default;

    virtual std::uint64_t size() const = 0;

    /// Copies up to `capacity` bytes from `offset` on and returns the count: 0 at the end, and when
    /// the bytes cannot be read.
    virtual std::size_t read(std::uint64_t offset, char* buffer, std::size_t capacity) const = 0;
};

/// A short text made by the server.
class TextContent final : public Content {
  public:
    explicit TextContent(std::string text) : text_(std::move(text)) {}

    std::uint64_t size() const override { return text_.size(); }
    std::size_t read(std::uint64_t offset, char* buffer, std::size_t capacity) const override;

  private:
    std::string text_;
};

/// An open regular file. The size is the one that it had when it was opened, so that the announced
/// length and the bytes sent belong together even when the file grows.
class FileContent final : public Content {
  public:
    FileContent(UniqueFd file, std::uint64_t size) : file_(std::move(file)), size_(size) {}

    std::uint64_t size() const override { return size_; }
    std::size_t read(std::uint64_t offset, char* buffer, std::size_t capacity) const override;

  private:
    UniqueFd file_;
    std::uint64_t size_;
};

}  // namespace voinetserver

#endif
