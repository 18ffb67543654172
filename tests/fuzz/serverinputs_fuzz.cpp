// What the development server takes from outside as text: ranges, its command line, its scripts.
// The first line of an input is a Range header, the rest are arguments, one per line.

#include "byterange.h"
#include "exchangescript.h"
#include "faults.h"
#include "options.h"
#include "support/fuzztarget.h"
#include "support/input.h"

#include <algorithm>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

namespace voinet_fuzz {

namespace {

using namespace voinetserver;

/// Keeps standard output and error for the object's life.
class Silence {
  public:
    Silence() : m_out(std::cout.rdbuf(m_text.rdbuf())), m_error(std::cerr.rdbuf(m_text.rdbuf())) {}
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() {
        std::cout.rdbuf(m_out);
        std::cerr.rdbuf(m_error);
    }

    std::string text() const { return m_text.str(); }

  private:
    std::ostringstream m_text;
    std::streambuf* m_out;
    std::streambuf* m_error;
};

void checkSelection(const RangeSelection& selection, std::uint64_t size) {
    if (const auto* range = std::get_if<ByteRange>(&selection)) {
        require(range->length >= 1, "a range is not empty");
        require(range->offset < size && range->length <= size - range->offset,
                "a range lies inside the content");
    }
}

void checkRange(const std::string& header) {
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1000},
                                     std::numeric_limits<std::uint64_t>::max()}) {
        checkSelection(selectRange(header, size), size);
        checkSelection(selectRange("bytes=" + header, size), size);
    }
}

/// A well-formed range selects what it says.
void checkFromTo(std::uint64_t first, std::uint64_t last, std::uint64_t size) {
    const std::string text = "Bytes=" + std::to_string(first) + "-";
    const RangeSelection selection = selectRange(text + std::to_string(last), size);
    const auto* range = std::get_if<ByteRange>(&selection);
    if (first > last) {
        require(std::holds_alternative<WholeContent>(selection), "a wrong range counts as absent");
    } else if (first >= size) {
        require(std::holds_alternative<UnsatisfiableRange>(selection), "beyond the end");
    } else {
        require(range != nullptr && range->offset == first &&
                    range->length == std::min(last, size - 1) - first + 1,
                "from first to last");
    }
    const RangeSelection open = selectRange(text, size);
    const auto* rest = std::get_if<ByteRange>(&open);
    require((rest != nullptr) == (first < size), "an open range needs a byte");
    require(rest == nullptr || rest->offset + rest->length == size, "an open range ends last");
}

bool isStatus(int status) {
    return status >= 200 && status <= 599;
}

void checkPlayer(const StatusScripts& scripts) {
    StatusPlayer player(scripts);
    for (const auto& [path, steps] : scripts) {
        require(!path.empty() && path.front() == '/', "a scripted path is one", path);
        require(!steps.empty(), "a script has a step");
        for (std::size_t i = 0; i < steps.size() + 2; ++i) {
            const int step = steps[std::min(i, steps.size() - 1)];
            require(step == kServeFile || isStatus(step), "a step is a status or the file");
            const auto status = player.next(path);
            require(status.value_or(kServeFile) == step, "steps come in order, the last one stays");
        }
    }
    require(!player.next("no such path").has_value(), "other paths are served");
}

void checkExchange(const ExchangeSettings& exchange) {
    require(exchange.path.empty() || exchange.path.front() == '/', "the exchange has a path");
    ExchangeScript script(exchange.script);
    for (std::size_t i = 0; i < exchange.script.size() + 2 && !exchange.script.empty(); ++i) {
        const ExchangeStep& expected = exchange.script[std::min(i, exchange.script.size() - 1)];
        const ExchangeStep step = script.next();
        require(step.kind == expected.kind && step.status == expected.status, "steps in order");
        require((step.kind == ExchangeStep::Kind::answer) == (step.status == 0), "no status");
        require(step.status == 0 || isStatus(step.status), "a step is a status");
    }
}

void checkOptions(const Options& options) {
    require(options.rate.value_or(1) > 0, "a rate moves something");
    require(options.user.find(':') == std::string::npos, "a user name has no colon");
    checkPlayer(options.scripts);
    for (const auto& [path, size] : options.cuts.byPath) {
        require(!path.empty() && path.front() == '/', "a cut path is one", path);
        require(options.cuts.limitFor(path) == size, "the rule of the path counts");
    }
    require(options.cuts.limitFor("no such path") ==
                options.cuts.everywhere.value_or(std::numeric_limits<std::uint64_t>::max()),
            "the rule for everywhere counts elsewhere");
    checkExchange(options.exchange);
    isLoopback(options.address);
}

void checkArguments(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "voinet-server");
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    const Silence silence;
    const auto parsed = parseOptions(static_cast<int>(pointers.size()), pointers.data());
    if (const auto* options = std::get_if<Options>(&parsed)) {
        checkOptions(*options);
        return;
    }
    const int status = std::get<ExitNow>(parsed).status;
    const std::string text = silence.text();
    require(status == 0 || status == 2, "help, or wrong usage");
    require(!text.empty(), "an end is explained");
    require(status == 0 || std::count(text.begin(), text.end(), '\n') == 1,
            "what is wrong is one line", text);
}

}  // namespace

void tryInput(const std::string& bytes) {
    Input input(bytes);
    const std::string header = input.line();
    checkRange(header);
    Input numbers(header);
    const std::uint64_t first = numbers.number(8) >> (numbers.byte() % 64U);
    const std::uint64_t last = numbers.number(8) >> (numbers.byte() % 64U);
    checkFromTo(first, last, numbers.number(8) >> (numbers.byte() % 64U));
    checkArguments(split(input.rest(), '\n'));
}

}  // namespace voinet_fuzz
