#ifndef VOINET_SRC_SATURATE_H
#define VOINET_SRC_SATURATE_H

#include <cmath>
#include <limits>
#include <type_traits>

namespace tessaro_com::pkm::voInet {

/// `value` as a To; a value beyond To's range becomes the nearest one inside, "not a number" 0. The
/// figures of the interface are `long`, which has 32 bits on the device.
template <class To, class From>
constexpr To saturate(From value) {
    static_assert(std::is_integral_v<To> && std::is_arithmetic_v<From>);
    using Limits = std::numeric_limits<To>;
    if constexpr (std::is_floating_point_v<From>) {
        if (std::isnan(value)) {
            return 0;
        }
        if (value <= static_cast<From>(Limits::min())) {
            return Limits::min();
        }
        return value >= static_cast<From>(Limits::max()) ? Limits::max() : static_cast<To>(value);
    } else {
        if constexpr (std::is_signed_v<From>) {
            if (value < 0) {
                if constexpr (std::is_signed_v<To>) {
                    return value < Limits::min() ? Limits::min() : static_cast<To>(value);
                } else {
                    return 0;
                }
            }
        }
        using Magnitude = std::common_type_t<std::make_unsigned_t<To>, std::make_unsigned_t<From>>;
        return static_cast<Magnitude>(value) > static_cast<Magnitude>(Limits::max())
                   ? Limits::max()
                   : static_cast<To>(value);
    }
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_SATURATE_H
