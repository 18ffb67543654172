// Secrets on their way through the log: none may be seen behind the command's masking, be it in a
// request that curl sent in pieces or in a text that holds them.
//
// Every second character of a secret is a "Q", which stands nowhere else: so that any two
// characters of a secret that get through are noticed.

#include "kvecomn/telmcomn.h"
#include "masking.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/tracelog.h"
#include "texts.h"
#include "traceline.h"

#include <algorithm>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

constexpr char kMark = 'Q';
constexpr int kSentHead = 2;
constexpr int kReceivedHead = 1;

/// A single line of text, as the command takes secrets. The text of a line end in a trace stays in
/// one piece.
std::string secretOf(const std::string& seed) {
    const std::string text =
        telmcomn_wide_to_ansi(telmcomn_ansi_to_wide(voinet_command::withoutControls(seed)));
    std::string secret(1, kMark);
    for (std::size_t i = 0; i < text.size();) {
        const std::string lineEnd = text.substr(i, 5);
        std::size_t length = 1;
        if (lineEnd == "`0x0d" || lineEnd == "`0x0a") {
            length = lineEnd.size();
        }
        // The bytes of one character stay together.
        while (i + length < text.size() &&
               (static_cast<unsigned char>(text[i + length]) & 0xC0U) == 0x80) {
            ++length;
        }
        if (text[i] != kMark) {
            secret += text.substr(i, length) + kMark;
        }
        i += length;
    }
    // The command does not hide texts of less than four characters everywhere.
    return secret.size() < 4 ? secret + "a" + kMark + "b" + kMark : secret;
}

std::string harmless(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char each) {
                                  return each == kMark || static_cast<unsigned char>(each) < 32;
                              }),
               text.end());
    return text;
}

/// Percent-encoded as in a URL, all but letters and digits.
std::string urlEncoded(const std::string& text) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        if (std::isalnum(byte) != 0) {
            encoded += each;
        } else {
            encoded += {'%', kDigits[byte / 16], kDigits[byte % 16]};
        }
    }
    return encoded;
}

struct Story {
    std::string word;
    std::string secret;
    std::string other;
};

/// The heads of requests as curl sends them, all with secrets in them.
std::string headOf(unsigned kind, const Story& story) {
    const std::string end = "\r\n";
    switch (kind % 4) {
        case 0:
            return "GET /" + story.word + " HTTP/1.1\r\nHost: h\r\nAuthorization: Basic " +
                   story.secret + end + "UpdateToken: " + story.other + end + "pragma:no-cache" +
                   end + end;
        case 1:
            return "GET ftp://joe:" + urlEncoded(story.secret) +
                   "@h:21/a HTTP/1.1\r\nProxy-Authorization: Digest " + story.other + end + end;
        case 2:
            return "PASS " + story.secret + end;
        default:
            return "updatetoken:" + story.secret + end + "X: " + story.word + end +
                   "AUTHORIZATION:   " + story.other + end + end;
    }
}

/// What is left of a head that goes through the masking in pieces.
std::string maskedHead(const std::string& head, Input& cuts) {
    voinet_command::Masker masker;
    std::string seen;
    std::size_t position = 0;
    while (position < head.size()) {
        const std::size_t size = cuts.empty() ? head.size() : cuts.byte() + std::size_t{1};
        seen += masker.Mask("curl", tracedLine(kSentHead, head.substr(position, size))) + "\n";
        position += size;
    }
    return seen;
}

void requireNothing(const std::string& seen, const std::string& secrets) {
    require(seen.find(kMark) == std::string::npos, "no part of a secret is seen",
            seen + "\nsecrets: " + secrets);
}

/// Secrets that the command knows, in a plain line and in a trace.
void checkKnownSecrets(const Story& story) {
    voinet_command::Masker masker;
    masker.AddSecret(story.secret);
    masker.AddSecret(story.other);
    const std::string text =
        story.word + " " + story.secret + ", " + story.other + "; " + story.word + story.secret;
    requireNothing(masker.Mask("voInet", text), story.secret + "\n" + story.other);
    requireNothing(masker.Mask("curl", tracedLine(kReceivedHead, text)),
                   story.secret + "\n" + story.other);
}

/// What holds no secret stays as it is.
void checkHarmlessLine(const std::string& word) {
    std::string letters;
    for (const char each : word) {
        letters += static_cast<char>('a' + static_cast<unsigned char>(each) % 26);
    }
    voinet_command::Masker masker;
    masker.AddSecret(secretOf(word));
    const std::string line = "GET /" + letters + " HTTP/1.1\r\nHost: " + letters + "\r\n\r\n";
    const std::string traced = tracedLine(kSentHead, line);
    require(masker.Mask("curl", traced) == traced, "other lines stay as they are", traced);
}

}  // namespace

void tryInput(const std::string& bytes) {
    Input input(bytes);
    const unsigned kind = input.byte();
    Story story;
    story.word = harmless(input.line());
    story.secret = secretOf(input.line());
    story.other = secretOf(input.line());
    const std::string head = headOf(kind, story);
    requireNothing(maskedHead(head, input), story.secret + "\n" + story.other);
    checkKnownSecrets(story);
    checkHarmlessLine(story.word);
}

}  // namespace voinet_fuzz
