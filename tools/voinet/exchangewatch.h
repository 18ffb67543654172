#ifndef VOINET_COMMAND_EXCHANGEWATCH_H
#define VOINET_COMMAND_EXCHANGEWATCH_H

#include "uniquefd.h"

#include <chrono>
#include <functional>
#include <thread>

namespace voinet_command {

/// Watches, in a thread of its own, over an exchange that the library gives no means to stop.
class ExchangeWatch {
  public:
    using Tick = std::function<void(std::chrono::seconds elapsed)>;
    using Stop = std::function<void()>;

    /// @param tick  called once in each interval; may be empty.
    /// @param stop  called once when a stop is requested, also when it was before. It may end the
    ///              process: an ordinary thread calls it, no signal handler.
    ExchangeWatch(Tick tick, Stop stop,
                  std::chrono::milliseconds interval = std::chrono::seconds(1));
    ExchangeWatch(const ExchangeWatch&) = delete;
    ExchangeWatch& operator=(const ExchangeWatch&) = delete;
    /// Neither function is called after this, nor still running.
    ~ExchangeWatch();

  private:
    void Run() const;

    Tick m_tick;
    Stop m_stop;
    std::chrono::milliseconds m_interval;
    /// Becomes readable when the exchange is over.
    UniqueFd m_over;
    std::thread m_thread;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_EXCHANGEWATCH_H
