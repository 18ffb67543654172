#include "exchangescript.h"

#include <algorithm>
#include <utility>

namespace voinetserver {

ExchangeScript::ExchangeScript(std::vector<ExchangeStep> steps) : steps_(std::move(steps)) {
    if (steps_.empty()) {
        steps_.emplace_back();
    }
}

ExchangeStep ExchangeScript::next() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const ExchangeStep step = steps_[position_];
    position_ = std::min(position_ + 1, steps_.size() - 1);
    return step;
}

}  // namespace voinetserver
