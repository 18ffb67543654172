#ifndef VOINET_SRC_BODYBLOCK_H
#define VOINET_SRC_BODYBLOCK_H

#include <memory>

namespace tessaro_com::pkm::voInet {

class CallbackManager;

/// Gathers the pieces in which libcurl hands over a body, 16 KiB at most and at odd positions
/// behind the header block, into blocks that begin and end at whole multiples of their size in the
/// file. The kernel takes such blocks for a third less than the pieces.
///
/// What was taken reaches the manager with the next full block or with flush.
class BodyBlock {
  public:
    /// Takes a piece for `manager`, the same one up to the next flush. Returns `size`, or less when
    /// the file cannot be written.
    unsigned long take(CallbackManager& manager, const void* piece, unsigned long size);

    /// Hands over what is left. False when the file cannot be written.
    bool flush();

    /// Forgets what is left.
    void clear();

  private:
    bool begin(CallbackManager& manager);
    bool writeOut();

    CallbackManager* m_manager = nullptr;
    std::unique_ptr<char[]> m_bytes;
    unsigned long m_size = 0;
    /// Where the next block ends: less than a whole one when the first position is an odd one.
    unsigned long m_capacity = 0;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_BODYBLOCK_H
