#ifndef VOINET_TESTS_SECRETS_H
#define VOINET_TESTS_SECRETS_H

#include <string>
#include <vector>

namespace voinettest {

/// A password or token that is like nothing else. It has special characters in the middle; its two
/// ends are letters and digits, so that they stand as they are in every encoding but base64.
class PeculiarSecret {
  public:
    /// @param mark  tells the secrets of a test apart: four letters or digits.
    /// @param user  whose it is: basic authentication sends both in one base64 text. Empty:
    /// nobody's.
    explicit PeculiarSecret(const std::string& mark, std::string user = {});

    const std::string& text() const { return text_; }
    std::wstring wide() const;
    /// What basic authentication sends.
    std::string basic() const;

    /// What of it is in a text, plain or as a part of base64; empty when nothing is.
    std::string foundIn(const std::string& text) const;
    /// Whether a text holds both ends.
    bool isWholeIn(const std::string& text) const;

  private:
    std::string head_;
    std::string tail_;
    std::string text_;
    std::string user_;
    std::vector<std::string> searched_;
};

/// Each secret that is in a text, with what was found.
std::vector<std::string> secretsIn(const std::string& text,
                                   const std::vector<PeculiarSecret>& secrets);

std::string base64(const std::string& bytes);

}  // namespace voinettest

#endif
