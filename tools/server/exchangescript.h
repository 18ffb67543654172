#ifndef VOINET_SERVER_EXCHANGESCRIPT_H
#define VOINET_SERVER_EXCHANGESCRIPT_H

#include <cstddef>
#include <mutex>
#include <vector>

namespace voinetserver {

/// How one request to the management server is answered.
struct ExchangeStep {
    enum class Kind {
        /// 200 with the next answer or, when none is left, 202.
        answer,
        status,
        /// The status with the header that tells the agent to update its keys.
        statusWithKeyUpdate
    };
    Kind kind = Kind::answer;
    /// 0 for Kind::answer.
    int status = 0;
};

/// The steps of the exchange, one per request; the last one stays. Threads share it.
class ExchangeScript {
  public:
    /// Without steps every one is ExchangeStep::Kind::answer.
    explicit ExchangeScript(std::vector<ExchangeStep> steps);

    ExchangeStep next();

  private:
    std::mutex mutex_;
    std::vector<ExchangeStep> steps_;
    std::size_t position_ = 0;
};

}  // namespace voinetserver

#endif
