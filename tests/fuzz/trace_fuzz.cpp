// Curl's trace on its way through the log: what the library writes, the command reads again. The
// first byte of an input is the kind of the block, the rest its bytes.

#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/tracelog.h"
#include "traceline.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace voinet_fuzz {

namespace {

struct Kind {
    const char* name;
    bool isWhole;
};

constexpr Kind kInds[] = {
    {"info", true},      {"rcv head", true},      {"snd head", true},      {"rcv data", false},
    {"snd data", false}, {"rcv SSL data", false}, {"snd SSL data", false},
};
constexpr std::size_t kShownOfData = 16;

void checkBlock(const Kind& kind, int number, const std::string& bytes) {
    const std::string line = tracedLine(number, bytes);
    require(std::all_of(line.begin(), line.end(), [](char c) { return c >= 32 && c <= 126; }),
            "a trace line is printable", line);
    const auto trace = voinet_command::parseTraceLine(line);
    require(trace.has_value(), "the command knows the line", line);
    require(trace->kind == kind.name, "the kind arrives", line);
    require(line.substr(trace->start) == trace->escaped, "the bytes begin where it says");
    const std::string shown = kind.isWhole ? bytes : bytes.substr(0, kShownOfData);
    require(voinet_command::unescapeTrace(trace->escaped) == shown, "the bytes arrive", line);
    require(line.find(" " + std::to_string(bytes.size()) + " ") != std::string::npos,
            "the size arrives", line);
}

/// Lines that nobody wrote do no harm.
void checkStrangeLine(const std::string& line) {
    if (const auto trace = voinet_command::parseTraceLine(line)) {
        require(trace->start <= line.size(), "the bytes begin inside the line");
        require(line.substr(trace->start) == trace->escaped, "the bytes are the line's");
    }
    require(voinet_command::unescapeTrace(line).size() <= line.size(), "escapes only shrink");
    const auto status = voinet_command::replyStatusOf(line);
    require(status.value_or(0) >= 0 && status.value_or(0) <= 999, "a status has three digits");
    require(!status || line.find(std::to_string(*status)) != std::string::npos,
            "a status stands in its line", line);
}

}  // namespace

void tryInput(const std::string& bytes) {
    Input input(bytes);
    const auto number = static_cast<int>(input.byte() % (std::size(kInds) + 1));
    const std::string block = input.rest();
    if (number < static_cast<int>(std::size(kInds))) {
        checkBlock(kInds[number], number, block);
    } else {
        require(tracedLine(number, block) ==
                    "Unknown trace: " + std::to_string(number) + " " + std::to_string(block.size()),
                "an unknown kind is said to be one");
    }
    checkStrangeLine(block);
}

}  // namespace voinet_fuzz
