/*
 * text/scale_power.h - multiplying or dividing by a power of a base whose
 * power alone leaves the double range.
 *
 * The float writer divides a number by base^exponent to bring it to one
 * integer digit, and the scan engine's text-to-double applies the text's
 * exponent the same way.  Near the ends of the range the power is not a
 * normal double although the result is: 4.9e-324 / 10^-324 (10^-324 is 0),
 * or 8e55 / 10^310 (10^310 is infinite).  There the exponent is applied in
 * steps, each of whose powers is a normal double, so the result is what the
 * text or the number stands for within a few units of the last place.
 */
#ifndef HALV_TEXT_SCALE_POWER_H
#define HALV_TEXT_SCALE_POWER_H

#include <stdint.h>

#include <cmath>

namespace halv {

/* value / base^exponent when `divide`, else value * base^exponent.  `power`
 * is base^exponent as the caller makes it; when it is a normal double it is
 * used as it is, in one operation, so results inside the range stay what
 * they always were.  Otherwise the exponent is cut in halves until the
 * power of a step is normal, and steps are applied until the exponent is
 * used up or the value has left the range for good (0 or infinity). */
inline double ScaleByPower(double value, double power, int32_t base, int64_t exponent, bool divide) noexcept {
    if (std::isnormal(power))
        return divide ? value / power : value * power;
    const double b = static_cast<double>(base);
    while (exponent != 0 && value != 0 && std::isfinite(value)) {
        int64_t step = exponent;
        double stepPower = std::pow(b, static_cast<double>(step));
        while (!std::isnormal(stepPower)) { /* base^1 is normal, so this ends */
            step /= 2;
            stepPower = std::pow(b, static_cast<double>(step));
        }
        value = divide ? value / stepPower : value * stepPower;
        exponent -= step;
    }
    return value;
}

} // namespace halv

#endif
